#include "d_backend_host.h"

#include "d_abstract_plugin.h"
#include "d_abstract_plugin_backend.h"
#include "d_command_runner.h"

#include <QTimer>
#include <QTimerEvent>
#include <QUuid>

DBackendHost::DBackendHost(DCommandRunner* runner, QObject* parent)
    : QObject(parent)
    , m_runner(runner)
{
    connect(runner, &DCommandRunner::sigFinished, this,
            [this](quint64 runId, const QString&, bool, const QVariantMap& results) { onFinished(runId, results); });
}

void DBackendHost::addInstance(DAbstractPlugin* instance) { m_instances << instance; }

void DBackendHost::setConnected(DAbstractPlugin* instance, bool connected)
{
    if (connected)
        m_connected.insert(instance);
    else
        m_connected.remove(instance);
    for (const auto& backend : qAsConst(m_backends)) {
        if (backend && this->instance(backend->objectId()) == instance)
            backend->setConnected(connected);
    }
}

bool DBackendHost::attachBackend(DAbstractPluginBackend* backend, QString* refusal)
{
    const DAbstractPlugin* plugin = instance(backend->objectId());
    if (!plugin) {
        *refusal = QStringLiteral("no plug-in instance has the object id \"%1\"").arg(backend->objectId());
        return false;
    }
    m_backends << backend;
    backend->setConnected(m_connected.contains(plugin));
    return true;
}

void DBackendHost::runCommand(QObject* context, const QString& objectId, const QString& name,
                              const QVariantMap& data, int timeout, EndHandler onEnd)
{
    quint64 runId = 0;
    const Outcome refused = start(objectId, name, data, &runId);
    if (runId == 0) {
        QTimer::singleShot(0, context, [onEnd, refused] { onEnd(refused); });
        return;
    }
    DPendingRun& run = m_runs[runId];
    run = {name, context, std::move(onEnd), 0, timeout > 0 ? timeout : c_defaultTimeoutMs, false};
    run.timerId = startTimer(run.timeout);
    m_timers.insert(run.timerId, runId);
}

DBackendHost::Outcome DBackendHost::start(const QString& objectId, const QString& name, const QVariantMap& data,
                                          quint64* runId)
{
    DAbstractPlugin* plugin = instance(objectId);
    if (!plugin || !m_runner)
        return {IMessenger::CeTargetMissing,
                QStringLiteral("no plug-in instance has the object id \"%1\"").arg(objectId), {}};
    if (!plugin->declaredCommand(name))
        return {IMessenger::CeUnknownInstruction,
                QStringLiteral("\"%1\" has no command \"%2\"").arg(plugin->pluginName(), name), {}};
    QString error;
    *runId = m_runner->start(plugin, name, data, &error);
    return {IMessenger::CeInstructionRefused, error, {}};
}

DAbstractPlugin* DBackendHost::instance(const QString& objectId) const
{
    const QUuid uuid(objectId);
    for (const auto& plugin : m_instances) {
        if (plugin && !uuid.isNull() && plugin->objectUuid() == uuid)
            return plugin;
    }
    return nullptr;
}

// Stopped the host's way; its end, with whatever results it has, comes through the runner.
void DBackendHost::timerEvent(QTimerEvent* event)
{
    const quint64 runId = m_timers.take(event->timerId());
    killTimer(event->timerId());
    const auto it = m_runs.find(runId);
    if (it == m_runs.end())
        return;
    it->timerId = 0;
    it->timedOut = true;
    m_runner->finish(runId);
}

void DBackendHost::onFinished(quint64 runId, const QVariantMap& results)
{
    const auto it = m_runs.constFind(runId);
    if (it == m_runs.cend())
        return;
    const DPendingRun run = *it;
    m_runs.erase(it);
    if (run.timerId != 0) {
        killTimer(run.timerId);
        m_timers.remove(run.timerId);
    }
    if (!run.context)
        return;
    if (run.timedOut)
        run.onEnd({IMessenger::CeTimeout,
                   QStringLiteral("\"%1\" did not finish within %2 ms").arg(run.name).arg(run.timeout), results});
    else
        run.onEnd({IMessenger::CeNoError, QString(), results});
}
