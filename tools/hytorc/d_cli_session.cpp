#include "d_cli_session.h"

#include "d_abstract_command.h"
#include "d_abstract_plugin.h"
#include "d_close_names.h"
#include "d_command_runner.h"
#include "d_failure_words.h"
#include "d_frame_tracer.h"
#include "d_instruction_router.h"
#include "d_link_supervisor.h"
#include "d_message_handler.h"
#include "d_signal_watcher.h"
#include "d_simulator_process.h"
#include "d_step_progress.h"
#include "d_workstation.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <unistd.h>

namespace {

void complain(const QString& message)
{
    DMessageHandler::say(message);
}

// Without a tool, a listener still has something to show: the simulator reports a tightening
// every few seconds unless told otherwise (--sim-arg=--event-period=0 keeps it quiet).
constexpr int c_simulatedEventPeriodMs = 3000;

} // namespace

DCliSession::DCliSession(const DCommandLine& commandLine, QObject* parent)
    : QObject(parent)
    , m_commandLine(commandLine)
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
    QList<DArgumentConverter::DOrderArguments> prepared;
    if (!prepareOrders(&prepared, &error) || !m_results.open(m_commandLine.outputPath, &error)) {
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
    int status = CeExitSuccess;
    if (!m_commandLine.bluetooth && path.isEmpty() && !startSimulator(&simulator, &path, &status))
        return status;
    if (m_commandLine.trace)
        new DFrameTracer(m_driver, this);
    // With --bluetooth the port is the one searchAndConnect opens.
    if (!m_commandLine.bluetooth && !m_link->open(path, &error)) {
        complain(error);
        return CeExitCommandFailed;
    }
    const bool allOk = runSequence(prepared);
    m_link->close();
    return allOk ? CeExitSuccess : CeExitCommandFailed;
}

// The orders one after the other, each once the link is there; true when every one succeeded.
bool DCliSession::runSequence(const QList<DArgumentConverter::DOrderArguments>& prepared)
{
    bool allOk = true;
    int i = 0;
    QString lost;
    for (; i < m_commandLine.orders.size() && !m_interrupted && !m_outputFailed; ++i) {
        if (m_link->isLost() && !m_link->reconnect(m_commandLine.reconnectSeconds, &lost))
            break;
        allOk = runOrder(m_commandLine.orders.at(i), prepared.at(i)) && allOk;
    }
    if (i < m_commandLine.orders.size() && !m_outputFailed) {
        const int notRun = m_commandLine.orders.size() - i;
        if (m_interrupted)
            complain(QStringLiteral("interrupted: %1 command(s) not run").arg(notRun));
        else
            DMessageHandler::say(QStringLiteral("link not back within %1 s: %2 command(s) not run (%3)")
                                     .arg(m_commandLine.reconnectSeconds).arg(notRun).arg(lost),
                                 DLinkSupervisor::notBackCheck());
    }
    return allOk && i == m_commandLine.orders.size() && !m_outputFailed;
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

// The simulator on a pseudo-terminal stands in for the tool; *status when it did not start.
bool DCliSession::startSimulator(DSimulatorProcess* simulator, QString* path, int* status)
{
    QStringList arguments = m_commandLine.simulatorArguments;
    const auto listens = [this](const DCommandLine::Order& order) {
        return m_device->declaredCommand(order.name)->isRecurrent();
    };
    if (std::any_of(m_commandLine.orders.cbegin(), m_commandLine.orders.cend(), listens)
        && arguments.filter(QStringLiteral("--event-period")).isEmpty())
        arguments << QStringLiteral("--event-period=%1").arg(c_simulatedEventPeriodMs);
    QString error;
    if (!simulator->start(arguments, path, &error)) {
        complain(error);
        *status = simulator->refusedArguments() ? CeExitUsage : CeExitCommandFailed;
        return false;
    }
    m_programs.spare(simulator->processId());
    complain(QStringLiteral("no --device given: using the tool simulator at %1").arg(*path));
    return true;
}

bool DCliSession::prepareOrders(QList<DArgumentConverter::DOrderArguments>* orders, QString* error) const
{
    for (const DCommandLine::Order& order : m_commandLine.orders) {
        if (!m_device->declaredCommand(order.name)) {
            const QString meant = DCloseNames::closest(order.name, m_device->commandNames());
            *error = QStringLiteral("unknown command \"%1\" (%2)")
                         .arg(order.name, meant.isEmpty() ? QStringLiteral("try: hytorc list")
                                                          : QStringLiteral("did you mean %1?").arg(meant));
            return false;
        }
        DArgumentConverter::DOrderArguments prepared;
        if (!DArgumentConverter::convert(order.name, m_device->getCommandParameters(order.name),
                                         order.assignments, &prepared, error)) {
            *error = order.name + QStringLiteral(": ") + *error;
            return false;
        }
        orders->append(prepared);
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

// Runs one order to its end: a recurrent command streams until Ctrl-C or --for; a command
// that should end by itself (a one-shot one, or one that runs system programs) is stopped
// after --timeout, and counts as failed.
bool DCliSession::runOrder(const DCommandLine::Order& order, const DArgumentConverter::DOrderArguments& prepared)
{
    for (const QString& note : prepared.notes)
        complain(note);
    const DAbstractCommand* prototype = m_device->declaredCommand(order.name);
    const bool recurrent = prototype->isRecurrent();
    const bool bounded = !recurrent || DExternalPrograms::runsPrograms(order.name);
    const QVariantMap& arguments = prepared.arguments;
    QEventLoop loop;
    // A command may end inside start() already, before its run id is known.
    QHash<quint64, bool> outcomes;
    QSet<quint64> replaced;  // listeners started again after a reconnection
    bool stopped = false;
    bool timedOut = false;
    QHash<quint64, QString> reasons;  // what the plug-in's engine said before a failure
    auto failed = connect(m_runner, &DCommandRunner::sigCommandError, &loop,
                          [&](quint64 id, const QString& reason) { reasons.insert(id, reason); });
    auto finished = connect(m_runner, &DCommandRunner::sigFinished, &loop,
                            [&](quint64 id, const QString& name, bool ok, const QVariantMap& results) {
                                if (replaced.contains(id))
                                    return;
                                // A listener ends by being stopped; a port that goes with Ctrl-C
                                // (the simulator got it too) may end it first.
                                const bool stoppedListener = recurrent && !bounded
                                    && (stopped || DSignalWatcher::terminationReceived());
                                outcomes.insert(id, (stoppedListener || DWorkstation::commandSucceeded(ok, results)) && !timedOut
                                                        && !m_outputFailed);
                                print({{"command", name}, {"success", outcomes.value(id)}, {"results", results}});
                                if (!outcomes.value(id) && !stopped)
                                    sayFailure(name, prepared, reasons.value(id));
                                const QString hint = stopped ? QString() : m_programs.failureHint(name, results);
                                if (!hint.isEmpty())
                                    complain(hint);
                                m_listRead = m_listRead || (name == QLatin1String("listProgram") && outcomes.value(id));
                                loop.quit();
                            });
    auto updated = connect(m_runner, &DCommandRunner::sigResultsUpdated, &loop,
                           [&](quint64, const QString& name, const QVariantMap& changed) {
                               if (!recurrent)
                                   return;
                               recordResult(changed);
                               print({{"command", name}, {"update", changed}}, true);
                           });
    QString error;
    quint64 runId = 0;
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
    QTimer deadline;
    deadline.setSingleShot(true);
    connect(&deadline, &QTimer::timeout, &loop, [&] {
        const QString stuck = m_programs.stuckMessage(m_commandLine.timeoutSeconds);
        complain(!stuck.isEmpty() ? stuck
                                  : QStringLiteral("%1 did not finish within %2 s; stopped")
                                        .arg(order.name).arg(m_commandLine.timeoutSeconds));
        timedOut = true;
        stop();
    });
    if (bounded)
        deadline.start(int(m_commandLine.timeoutSeconds * 1000));
    QTimer limit;
    limit.setSingleShot(true);
    connect(&limit, &QTimer::timeout, &loop, stop);
    if (recurrent && m_commandLine.forSeconds > 0)
        limit.start(int(m_commandLine.forSeconds * 1000));
    std::unique_ptr<DStepProgress> progress;
    if (showsProgress() && DExternalPrograms::runsPrograms(order.name))
        progress = std::make_unique<DStepProgress>(m_programs, order.name);
    // Started after the timers: a command may block in its start (startDetection lists for 2 s).
    runId = m_runner->start(m_device, order.name, arguments, &error);
    if (runId == 0)
        complain(QStringLiteral("%1: %2").arg(order.name, error));
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
    auto noPort = connect(m_link, &DLinkSupervisor::sigNoPortOpen, &loop, [&] {
        if (stopped)
            return;
        complain(QStringLiteral("%1: no port is open yet; searchAndConnect serialId=ADDRESS opens one, "
                                "before it on the same command line").arg(order.name));
        stop();
    });
    if (runId != 0 && !outcomes.contains(runId))
        loop.exec();
    progress.reset();
    m_stopCurrent = nullptr;
    if (recurrent && !bounded && runId != 0) {
        const QString losses = m_link->lossSummary();
        complain(QStringLiteral("%1: %2").arg(order.name, m_results.summary())
                 + (losses.isEmpty() ? QString() : QStringLiteral("; ") + losses));
    }
    for (const QMetaObject::Connection& connection : {failed, finished, updated, lost, noPort})
        disconnect(connection);
    m_programs.endLeftovers();
    return outcomes.value(runId, false);
}

void DCliSession::sayFailure(const QString& name, const DArgumentConverter::DOrderArguments& prepared,
                             const QString& reason)
{
    QStringList declared;
    for (const QVariant& declaration : m_device->getCommandParameters(name))
        declared << declaration.toMap().value(QStringLiteral("name")).toString();
    const QString line =
        DFailureWords::explain({name, prepared.arguments, reason, prepared.undeclared, declared, m_listRead});
    if (!line.isEmpty())
        complain(line);
}

// Step lines are for someone watching: a terminal, or --verbose.
bool DCliSession::showsProgress() const
{
    return m_commandLine.verbose || ::isatty(STDERR_FILENO) == 1;
}

// A listener waits for its port; false when it did not come back (said) or was stopped meanwhile.
bool DCliSession::awaitLink(const QString& listener, const bool& stopping)
{
    QString failure;
    const bool back = m_link->reconnect(m_commandLine.reconnectSeconds, &failure);
    if (!back && !stopping)
        DMessageHandler::say(QStringLiteral("link not back within %1 s: %2 stopped (%3)")
                                 .arg(m_commandLine.reconnectSeconds).arg(listener, failure),
                             DLinkSupervisor::notBackCheck());
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

// A tightening result is one "eventData" update. A file that refuses it ends the run:
// every later result would be lost the same way.
void DCliSession::recordResult(const QVariantMap& changed)
{
    const QVariant result = changed.value(QStringLiteral("eventData"));
    QString error;
    if (m_outputFailed || !result.isValid() || m_results.record(result.toMap(), &error))
        return;
    complain(error);
    endRun();
}

void DCliSession::print(const QVariantMap& object, bool oneLine)
{
    if (m_stdoutFailed)
        return;
    const bool compact = m_commandLine.json || oneLine;
    QByteArray text = QJsonDocument(QJsonObject::fromVariantMap(object))
                          .toJson(compact ? QJsonDocument::Compact : QJsonDocument::Indented);
    if (compact)
        text += '\n';
    if (std::fwrite(text.constData(), 1, size_t(text.size()), stdout) == size_t(text.size()) && std::fflush(stdout) == 0)
        return;
    // A reader that went away (hytorc | head) ends the run as SIGPIPE would: without a word.
    m_stdoutFailed = true;
    if (errno != EPIPE)
        complain(QStringLiteral("cannot write the results: %1").arg(QString::fromLocal8Bit(std::strerror(errno))));
    endRun();
}

// Output that cannot be written ends the command now running (from the event loop, not
// from inside the command's own signal) and the rest of the sequence.
void DCliSession::endRun()
{
    m_outputFailed = true;
    QMetaObject::invokeMethod(this, [this] {
        if (m_stopCurrent)
            m_stopCurrent();
    }, Qt::QueuedConnection);
}
