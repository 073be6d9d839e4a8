#include "d_cli_session.h"

#include "d_abstract_command.h"
#include "d_abstract_plugin.h"
#include "d_argument_converter.h"
#include "d_command_runner.h"
#include "d_frame_tracer.h"
#include "d_instruction_router.h"
#include "d_signal_watcher.h"
#include "d_simulator_process.h"
#include "d_workstation.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>

#include <cstdio>

namespace {

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
    , m_station(new DWorkstation(this))
    , m_runner(m_station->runner())
    , m_signals(new DSignalWatcher(this))
{
    connect(m_signals, &DSignalWatcher::sigTerminate, this, &DCliSession::onTerminate);
    connect(m_station->router(), &DInstructionRouter::sigInstructionFailed, this,
            [](const QString& target, const QString& instruction, const QString& reason) {
                complain(QStringLiteral("%1 \"%2\": %3").arg(target, instruction, reason));
            });
}

DCliSession::~DCliSession() = default;

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
    if (!prepareOrders(&arguments, &error) || !m_results.open(m_commandLine.outputPath, &error)) {
        complain(error);
        return CeExitUsage;
    }
    DSimulatorProcess simulator(m_commandLine.trace);
    QString path = m_commandLine.device;
    if (path.isEmpty() && !simulator.start(m_commandLine.simulatorArguments, &path, &error)) {
        complain(error);
        return CeExitCommandFailed;
    }
    if (m_commandLine.trace)
        new DFrameTracer(m_driver, this);
    if (!m_station->openDevice(path, &error)) {
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
    m_station->closeDevice();
    return allOk ? CeExitSuccess : CeExitCommandFailed;
}

bool DCliSession::setUp(QString* error)
{
    if (!m_station->setUp(m_commandLine.pluginDirectory, error))
        return false;
    m_device = m_station->device();
    m_driver = m_station->driver();
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

// Runs one order to its end: a recurrent command streams until Ctrl-C or --for, a command
// that never ends is stopped after --timeout.
bool DCliSession::runOrder(const DCommandLine::Order& order, const QVariantMap& arguments)
{
    const DAbstractCommand* prototype = m_device->declaredCommand(order.name);
    const bool recurrent = prototype->isRecurrent();
    QEventLoop loop;
    // A command may end inside start() already, before its run id is known.
    QHash<quint64, bool> outcomes;
    auto finished = connect(m_runner, &DCommandRunner::sigFinished, &loop,
                            [&](quint64 id, const QString& name, bool ok, const QVariantMap& results) {
                                outcomes.insert(id, commandSucceeded(ok, results));
                                print({{"command", name}, {"success", outcomes.value(id)}, {"results", results}});
                                loop.quit();
                            });
    auto updated = connect(m_runner, &DCommandRunner::sigResultsUpdated, &loop,
                           [&](quint64, const QString& name, const QVariantMap& changed) {
                               if (!recurrent)
                                   return;
                               print({{"command", name}, {"update", changed}});
                               recordResult(changed);
                           });
    QString error;
    const quint64 runId = m_runner->start(m_device, order.name, arguments, &error);
    if (runId == 0)
        complain(QStringLiteral("%1: %2").arg(order.name, error));
    const auto stop = [&] {
        if (recurrent)
            m_runner->stop(m_device, prototype->stopCommandName());
        else
            m_runner->finish(runId);
    };
    m_stopCurrent = stop;
    QTimer limit;
    limit.setSingleShot(true);
    connect(&limit, &QTimer::timeout, &loop, [&] {
        if (!recurrent)
            complain(QStringLiteral("%1 did not finish within %2 s; stopped")
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
    if (recurrent && runId != 0)
        complain(QStringLiteral("%1: %2").arg(order.name, m_results.summary()));
    disconnect(finished);
    disconnect(updated);
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

// A tightening result is one "eventData" update.
void DCliSession::recordResult(const QVariantMap& changed)
{
    const QVariant result = changed.value(QStringLiteral("eventData"));
    QString error;
    if (result.isValid() && !m_results.record(result.toMap(), &error))
        complain(error);
}

void DCliSession::print(const QVariantMap& object)
{
    const QJsonDocument document(QJsonObject::fromVariantMap(object));
    m_out << document.toJson(m_commandLine.json ? QJsonDocument::Compact : QJsonDocument::Indented);
    if (m_commandLine.json)
        m_out << '\n';
    m_out.flush();
}
