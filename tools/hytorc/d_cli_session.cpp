#include "d_cli_session.h"

#include "d_abstract_command.h"
#include "d_abstract_plugin.h"
#include "d_argument_converter.h"
#include "d_command_runner.h"
#include "d_frame_tracer.h"
#include "d_instruction_router.h"
#include "d_link_supervisor.h"
#include "d_message_handler.h"
#include "d_signal_watcher.h"
#include "d_simulator_process.h"
#include "d_workstation.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QTimer>

#include <algorithm>

namespace {

void complain(const QString& message)
{
    DMessageHandler::say(message);
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
            return simulator.refusedArguments() ? CeExitUsage : CeExitCommandFailed;
        }
        m_programs.spare(simulator.processId());
        complain(QStringLiteral("no --device given: using the tool simulator at %1").arg(path));
    }
    if (m_commandLine.trace)
        new DFrameTracer(m_driver, this);
    // With --bluetooth the port is the one searchAndConnect opens.
    if (!m_commandLine.bluetooth && !m_link->open(path, &error)) {
        complain(error);
        return CeExitCommandFailed;
    }
    bool allOk = true;
    int i = 0;
    QString lost;
    for (; i < m_commandLine.orders.size() && !m_interrupted; ++i) {
        if (m_link->isLost() && !m_link->reconnect(m_commandLine.reconnectSeconds, &lost))
            break;
        allOk = runOrder(m_commandLine.orders.at(i), arguments.at(i)) && allOk;
    }
    if (i < m_commandLine.orders.size()) {
        const int notRun = m_commandLine.orders.size() - i;
        complain(m_interrupted ? QStringLiteral("interrupted: %1 command(s) not run").arg(notRun)
                               : QStringLiteral("link not back within %1 s: %2 command(s) not run (%3)")
                                     .arg(m_commandLine.reconnectSeconds).arg(notRun).arg(lost));
        allOk = false;
    }
    m_link->close();
    return allOk ? CeExitSuccess : CeExitCommandFailed;
}

bool DCliSession::setUp(QString* error)
{
    if (!m_station->setUp(m_commandLine.pluginDirectory, error))
        return false;
    m_device = m_station->device();
    m_driver = m_station->driver();
    m_link = new DLinkSupervisor(m_station->router(), m_driver, this);
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
        if (!DArgumentConverter::convert(order.name, m_device->getCommandParameters(order.name),
                                         order.assignments, &converted, error)) {
            *error = order.name + QStringLiteral(": ") + *error;
            return false;
        }
        arguments->append(converted);
    }
    const auto recurrent = [this](const DCommandLine::Order& order) {
        return m_device->declaredCommand(order.name)->isRecurrent();
    };
    if (m_commandLine.forSeconds > 0
        && std::none_of(m_commandLine.orders.cbegin(), m_commandLine.orders.cend(), recurrent)) {
        *error = QStringLiteral("--for only limits a recurrent command (listenEventsData), and none is given");
        return false;
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
    QSet<quint64> replaced;  // listeners started again after a reconnection
    bool stopped = false;
    QHash<quint64, QString> reasons;  // what the plug-in's engine said before a failure
    auto failed = connect(m_runner, &DCommandRunner::sigCommandError, &loop,
                          [&](quint64 id, const QString& reason) { reasons.insert(id, reason); });
    auto finished = connect(m_runner, &DCommandRunner::sigFinished, &loop,
                            [&](quint64 id, const QString& name, bool ok, const QVariantMap& results) {
                                if (replaced.contains(id))
                                    return;
                                outcomes.insert(id, commandSucceeded(ok, results));
                                print({{"command", name}, {"success", outcomes.value(id)}, {"results", results}});
                                if (!outcomes.value(id) && !stopped && reasons.contains(id))
                                    complain(QStringLiteral("%1 failed: %2").arg(name, reasons.value(id)));
                                const QString hint = stopped ? QString() : m_programs.failureHint(name, results);
                                if (!hint.isEmpty())
                                    complain(hint);
                                loop.quit();
                            });
    auto updated = connect(m_runner, &DCommandRunner::sigResultsUpdated, &loop,
                           [&](quint64, const QString& name, const QVariantMap& changed) {
                               if (!recurrent)
                                   return;
                               print({{"command", name}, {"update", changed}}, true);
                               recordResult(changed);
                           });
    QString error;
    quint64 runId = m_runner->start(m_device, order.name, arguments, &error);
    if (runId == 0)
        complain(QStringLiteral("%1: %2").arg(order.name, error));
    bool stopping = false;
    const auto stop = [&] {
        stopping = true;
        stopped = true;
        m_link->abort();
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
    // A lost link ends a tool command at once; a listener listens again once the port is back.
    auto lost = connect(m_link, &DLinkSupervisor::sigLinkLost, &loop, [&] {
        if (!recurrent || !awaitLink(order.name, stopping)) {
            stop();
            return;
        }
        replaced.insert(runId);
        m_runner->finish(runId);
        runId = m_runner->start(m_device, order.name, arguments, &error);
        if (runId == 0) {
            complain(QStringLiteral("%1: %2").arg(order.name, error));
            loop.quit();
        }
    });
    if (runId != 0 && !outcomes.contains(runId))
        loop.exec();
    m_stopCurrent = nullptr;
    if (recurrent && runId != 0) {
        const QString losses = m_link->lossSummary();
        complain(QStringLiteral("%1: %2").arg(order.name, m_results.summary())
                 + (losses.isEmpty() ? QString() : QStringLiteral("; ") + losses));
    }
    disconnect(failed);
    disconnect(finished);
    disconnect(updated);
    disconnect(lost);
    m_programs.endLeftovers();
    return outcomes.value(runId, false);
}

// A listener waits for its port; false when it did not come back (said) or was stopped meanwhile.
bool DCliSession::awaitLink(const QString& listener, const bool& stopping)
{
    QString failure;
    const bool back = m_link->reconnect(m_commandLine.reconnectSeconds, &failure);
    if (!back && !stopping)
        complain(QStringLiteral("link not back within %1 s: %2 stopped (%3)")
                     .arg(m_commandLine.reconnectSeconds).arg(listener, failure));
    return back && !stopping;
}

// Ctrl-C ends the running command (for a recurrent one, its normal end) and the sequence.
void DCliSession::onTerminate()
{
    m_interrupted = true;
    if (m_link)
        m_link->abort();
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

void DCliSession::print(const QVariantMap& object, bool oneLine)
{
    const bool compact = m_commandLine.json || oneLine;
    const QJsonDocument document(QJsonObject::fromVariantMap(object));
    m_out << document.toJson(compact ? QJsonDocument::Compact : QJsonDocument::Indented);
    if (compact)
        m_out << '\n';
    m_out.flush();
}
