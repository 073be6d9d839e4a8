#include "d_cli_session.h"

#include "d_abstract_command.h"
#include "d_abstract_plugin.h"
#include "d_argument_converter.h"
#include "d_command_runner.h"
#include "d_frame_tracer.h"
#include "d_instruction_router.h"
#include "d_plugin_host.h"
#include "d_signal_watcher.h"
#include "d_simulator_process.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>
#include <QUuid>

#include <cstdio>

namespace {

const QString c_devicePluginName = QStringLiteral("Plugin Device Hytorc");
const QString c_driverPluginName = QStringLiteral("Plugin Driver Serial");
const QString c_driverTarget = QStringLiteral("driver");
constexpr int c_openTimeoutMs = 5000;

void complain(const QString& message)
{
    std::fprintf(stderr, "hytorc: %s\n", qPrintable(message));
}

// A command tells its outcome in "cmd_success" (or "doneOk"); the end flag only when it has neither.
bool commandSucceeded(bool finishedOk, const QVariantMap& results)
{
    if (results.contains(QStringLiteral("cmd_success")))
        return results.value(QStringLiteral("cmd_success")).toBool();
    if (results.contains(QStringLiteral("doneOk")))
        return results.value(QStringLiteral("doneOk")).toBool();
    return finishedOk;
}

} // namespace

DCliSession::DCliSession(const DCommandLine& commandLine, QObject* parent)
    : QObject(parent)
    , m_commandLine(commandLine)
    , m_out(stdout)
    , m_router(new DInstructionRouter(this))
    , m_host(new DPluginHost(m_router, this))
    , m_runner(new DCommandRunner(this))
    , m_signals(new DSignalWatcher(this))
{
    connect(m_signals, &DSignalWatcher::sigTerminate, this, &DCliSession::onTerminate);
    connect(m_router, &DInstructionRouter::sigInstructionFailed, this,
            [](const QString& target, const QString& instruction, const QString& reason) {
                complain(QStringLiteral("%1 \"%2\": %3").arg(target, instruction, reason));
            });
}

// Commands still running are ended before the plug-ins go.
DCliSession::~DCliSession()
{
    delete m_runner;
}

int DCliSession::run()
{
    QString error;
    if (!setUp(&error)) {
        complain(error);
        return CeExitUsage;
    }
    if (m_commandLine.listOnly) {
        listCommands();
        return CeExitSuccess;
    }
    QList<QVariantMap> arguments;
    if (!prepareOrders(&arguments, &error)) {
        complain(error);
        return CeExitUsage;
    }
    QStringList names;
    for (const DCommandLine::Order& order : m_commandLine.orders)
        names << order.name;
    error = m_programs.missingFor(names);
    if (!error.isEmpty()) {
        complain(error);
        return CeExitCommandFailed;
    }
    DSimulatorProcess simulator(m_commandLine.trace);
    QString path = m_commandLine.device;
    if (!m_commandLine.bluetooth && path.isEmpty()) {
        if (!simulator.start(m_commandLine.simulatorArguments, &path, &error)) {
            complain(error);
            return CeExitCommandFailed;
        }
        m_programs.spare(simulator.processId());
    }
    if (m_commandLine.trace)
        new DFrameTracer(m_driver, this);
    // With --bluetooth the port is the one searchAndConnect opens.
    if (!m_commandLine.bluetooth && !openDevice(path, &error)) {
        complain(error);
        return CeExitCommandFailed;
    }
    bool allOk = true;
    int i = 0;
    for (; i < m_commandLine.orders.size() && !m_interrupted; ++i)
        allOk = runOrder(m_commandLine.orders.at(i), arguments.at(i)) && allOk;
    if (i < m_commandLine.orders.size()) {
        complain(QStringLiteral("interrupted: %1 command(s) not run").arg(m_commandLine.orders.size() - i));
        allOk = false;
    }
    closeDevice();
    return allOk ? CeExitSuccess : CeExitCommandFailed;
}

bool DCliSession::setUp(QString* error)
{
    if (!m_host->loadPlugins(m_commandLine.pluginDirectory, error))
        return false;
    IPlugin* deviceRoot = m_host->rootPlugin(c_devicePluginName);
    IPlugin* driverRoot = m_host->rootPlugin(c_driverPluginName);
    if (!deviceRoot || !driverRoot) {
        *error = QStringLiteral("\"%1\" not found in %2").arg(deviceRoot ? c_driverPluginName : c_devicePluginName,
                                                              m_commandLine.pluginDirectory);
        return false;
    }
    m_device = m_host->createInstance(deviceRoot, QUuid::createUuid());
    m_driver = m_host->createInstance(driverRoot, QUuid::createUuid());
    if (!m_device || !m_driver || !m_host->playTarget(c_driverTarget, m_driver)) {
        *error = QStringLiteral("the plug-ins could not be instantiated");
        return false;
    }
    return true;
}

bool DCliSession::prepareOrders(QList<QVariantMap>* arguments, QString* error) const
{
    for (const DCommandLine::Order& order : m_commandLine.orders) {
        if (!m_device->declaredCommand(order.name)) {
            *error = QStringLiteral("unknown command \"%1\" (try: hytorc list)").arg(order.name);
            return false;
        }
        QVariantMap converted;
        if (!DArgumentConverter::convert(m_device->getCommandParameters(order.name), order.assignments,
                                         &converted, error)) {
            *error = order.name + QStringLiteral(": ") + *error;
            return false;
        }
        arguments->append(converted);
    }
    return true;
}

bool DCliSession::openDevice(const QString& path, QString* error)
{
    const QVariantMap settings{
        {"devicePath", path},  {"rawMode", true}, {"parallelListening", true}, {"baud_rate", 115200},
        {"data_bits", 8},      {"parity", 0},     {"stop_bits", 1},            {"flow_control", 0}};
    QEventLoop loop;
    QVariantMap reply;
    QString refusal;
    const quint64 id = m_router->openInstruction(
        c_driverTarget, QStringLiteral("changeDevicePath"), settings, c_openTimeoutMs,
        [&](quint64, const QVariantMap& answer) {
            reply = answer;
            loop.quit();
        },
        &refusal);
    if (id == 0) {
        *error = refusal;
        return false;
    }
    loop.exec();
    if (reply.value(QStringLiteral("results")).toMap().value(QStringLiteral("doneOk")).toBool())
        return true;
    *error = QStringLiteral("cannot open %1: %2").arg(path, reply.value(QStringLiteral("error")).toString());
    return false;
}

void DCliSession::closeDevice()
{
    QEventLoop loop;
    QString refusal;
    if (m_router->openInstruction(c_driverTarget, QStringLiteral("closeConnection"), {}, c_openTimeoutMs,
                                  [&](quint64, const QVariantMap&) { loop.quit(); }, &refusal))
        loop.exec();
}

// Runs one order to its end: a recurrent command streams until Ctrl-C or --for, a command
// that never ends is stopped after --timeout.
bool DCliSession::runOrder(const DCommandLine::Order& order, const QVariantMap& arguments)
{
    const DAbstractCommand* prototype = m_device->declaredCommand(order.name);
    const bool recurrent = prototype->isRecurrent();
    QEventLoop loop;
    // A command may end inside start() already, before its run id is known.
    QHash<quint64, bool> outcomes;
    bool stopped = false;
    auto finished = connect(m_runner, &DCommandRunner::sigFinished, &loop,
                            [&](quint64 id, const QString& name, bool ok, const QVariantMap& results) {
                                outcomes.insert(id, commandSucceeded(ok, results));
                                print({{"command", name}, {"success", outcomes.value(id)}, {"results", results}});
                                const QString hint = stopped ? QString() : m_programs.failureHint(name, results);
                                if (!hint.isEmpty())
                                    complain(hint);
                                loop.quit();
                            });
    auto updated = connect(m_runner, &DCommandRunner::sigResultsUpdated, &loop,
                           [&](quint64, const QString& name, const QVariantMap& changed) {
                               if (recurrent)
                                   print({{"command", name}, {"update", changed}}, true);
                           });
    QString error;
    const quint64 runId = m_runner->start(m_device, order.name, arguments, &error);
    if (runId == 0)
        complain(QStringLiteral("%1: %2").arg(order.name, error));
    const auto stop = [&] {
        stopped = true;
        if (recurrent)
            m_runner->stop(m_device, prototype->stopCommandName());
        else
            m_runner->finish(runId);
    };
    m_stopCurrent = stop;
    QTimer limit;
    limit.setSingleShot(true);
    connect(&limit, &QTimer::timeout, &loop, [&] {
        const QString stuck = m_programs.stuckMessage(m_commandLine.timeoutSeconds);
        if (!recurrent)
            complain(!stuck.isEmpty() ? stuck
                                      : QStringLiteral("%1 did not finish within %2 s; stopped")
                                            .arg(order.name).arg(m_commandLine.timeoutSeconds));
        stop();
    });
    if (!recurrent)
        limit.start(int(m_commandLine.timeoutSeconds * 1000));
    else if (m_commandLine.forSeconds > 0)
        limit.start(int(m_commandLine.forSeconds * 1000));
    if (runId != 0 && !outcomes.contains(runId))
        loop.exec();
    m_stopCurrent = nullptr;
    disconnect(finished);
    disconnect(updated);
    m_programs.endLeftovers();
    return outcomes.value(runId, false);
}

// Ctrl-C ends the running command (for a recurrent one, its normal end) and the sequence.
void DCliSession::onTerminate()
{
    m_interrupted = true;
    if (m_stopCurrent)
        m_stopCurrent();
}

void DCliSession::listCommands()
{
    for (const QString& name : m_device->commandNames())
        print(m_device->getFunctionDescription(name));
}

void DCliSession::print(const QVariantMap& object, bool oneLine)
{
    const bool compact = m_commandLine.json || oneLine;
    const QJsonDocument document(QJsonObject::fromVariantMap(object));
    m_out << document.toJson(compact ? QJsonDocument::Compact : QJsonDocument::Indented);
    if (compact)
        m_out << '\n';
    m_out.flush();
}
