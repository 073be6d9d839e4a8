#include "d_backend_host.h"

#include "d_abstract_plugin.h"
#include "d_abstract_plugin_backend.h"
#include "d_command_runner.h"

#include <QTimer>
#include <QTimerEvent>
#include <QUuid>

namespace {

const QString c_linkChannel = QStringLiteral("link");
constexpr int c_textChannelType = 1;  // a channel's type code for a text value

} // namespace

DBackendHost::DBackendHost(DCommandRunner* runner, QObject* parent)
    : QObject(parent)
    , m_runner(runner)
{
    connect(runner, &DCommandRunner::sigFinished, this,
            [this](quint64 runId, const QString&, bool, const QVariantMap& results) { onFinished(runId, results); });
}

void DBackendHost::addInstance(DAbstractPlugin* instance) { m_instances << instance; }

void DBackendHost::setConnected(DAbstractPlugin* instance, bool connected, const QString& linkState)
{
    if (connected)
        m_connected.insert(instance);
    else
        m_connected.remove(instance);
    m_linkStates.insert(instance, linkState);
    for (const auto& backend : qAsConst(m_backends)) {
        if (backend && this->instance(backend->objectId()) == instance)
            showLink(backend, instance);
    }
}

// A backend that keeps status channels takes their descriptions through "loadChannels".
void DBackendHost::showLink(DAbstractPluginBackend* backend, const DAbstractPlugin* instance) const
{
    backend->setConnected(m_connected.contains(instance));
    const QString state = m_linkStates.value(instance);
    if (state.isEmpty() || backend->metaObject()->indexOfMethod("loadChannels(QVariantList)") < 0)
        return;
    const QVariantMap channel{
        {"id", c_linkChannel}, {"name", QStringLiteral("Link")}, {"type", c_textChannelType}, {"value", QVariantList{state}}};
    QMetaObject::invokeMethod(backend, "loadChannels", Q_ARG(QVariantList, QVariantList{channel}));
}

bool DBackendHost::attachBackend(DAbstractPluginBackend* backend, QString* refusal)
{
    const DAbstractPlugin* plugin = instance(backend->objectId());
    if (!plugin) {
        *refusal = QStringLiteral("no plug-in instance has the object id \"%1\"").arg(backend->objectId());
        return false;
    }
    m_backends << backend;
    showLink(backend, plugin);
    return true;
}

void DBackendHost::runCommand(QObject* context, const QString& objectId, const QString& name,
                              const QVariantMap& data, int timeout, EndHandler onEnd)
{
    m_queue.enqueue({context, objectId, name, data, timeout > 0 ? timeout : c_defaultTimeoutMs, std::move(onEnd)});
    if (m_queue.size() == 1)
        startNext();
}

// A command that cannot start is answered on a later turn, and the next one starts.
void DBackendHost::startNext()
{
    while (!m_queue.isEmpty()) {
        DPendingRun& next = m_queue.head();
        if (next.runId != 0)
            return;
        const Outcome refused = start(&next);
        if (next.runId != 0) {
            next.timerId = startTimer(next.timeout);
            return;
        }
        const DPendingRun dropped = m_queue.dequeue();
        if (dropped.context)
            QTimer::singleShot(0, dropped.context, [onEnd = dropped.onEnd, refused] { onEnd(refused); });
    }
}

DBackendHost::Outcome DBackendHost::start(DPendingRun* run)
{
    DAbstractPlugin* plugin = instance(run->objectId);
    if (!plugin || !m_runner)
        return {IMessenger::CeTargetMissing,
                QStringLiteral("no plug-in instance has the object id \"%1\"").arg(run->objectId), {}};
    // The host's own channel: read at every update, never set by a click.
    if (run->name.isEmpty() && run->data.value(QStringLiteral("channel")) == c_linkChannel)
        return run->data.contains(QStringLiteral("value"))
            ? Outcome{IMessenger::CeInstructionRefused, QStringLiteral("the link's state cannot be set"), {}}
            : Outcome{IMessenger::CeNoError, QString(), {{QStringLiteral("cmd_success"), true}}};
    if (!plugin->declaredCommand(run->name))
        return {IMessenger::CeUnknownInstruction,
                QStringLiteral("\"%1\" has no command \"%2\"").arg(plugin->pluginName(), run->name), {}};
    QString error;
    run->runId = m_runner->start(plugin, run->name, run->data, &error);
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
    killTimer(event->timerId());
    if (m_queue.isEmpty() || m_queue.head().timerId != event->timerId())
        return;
    m_queue.head().timerId = 0;
    m_queue.head().timedOut = true;
    m_runner->finish(m_queue.head().runId);
}

void DBackendHost::onFinished(quint64 runId, const QVariantMap& results)
{
    if (m_queue.isEmpty() || m_queue.head().runId != runId)
        return;
    const DPendingRun run = m_queue.dequeue();
    if (run.timerId != 0)
        killTimer(run.timerId);
    if (run.context && run.timedOut)
        run.onEnd({IMessenger::CeTimeout,
                   QStringLiteral("\"%1\" did not finish within %2 ms").arg(run.name).arg(run.timeout), results});
    else if (run.context)
        run.onEnd({IMessenger::CeNoError, QString(), results});
    startNext();
}
