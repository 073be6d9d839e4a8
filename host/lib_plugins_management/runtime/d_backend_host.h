#ifndef D_BACKEND_HOST_H
#define D_BACKEND_HOST_H

#include "i_plugin_backend_host.h"

#include <QObject>
#include <QHash>
#include <QPointer>
#include <QQueue>
#include <QSet>

class DAbstractPlugin;
class DAbstractPluginBackend;
class DCommandRunner;

// The host's side of the maintenance panels: links each panel's backend to the plug-in
// instance it names and runs that instance's commands for it through the runner.
// Commands run one at a time, in the order asked, since they share the device's link.
// Outcomes: a command that is not declared ends with CeUnknownInstruction, one that
// refuses to execute with CeInstructionRefused, one that has not finished within its
// time limit is stopped the host's way and ends with CeTimeout.
class DBackendHost : public QObject, public IPluginBackendHost
{
    Q_OBJECT
    Q_INTERFACES(IPluginBackendHost)
public:
    static constexpr int c_defaultTimeoutMs = 60000;

    explicit DBackendHost(DCommandRunner* runner, QObject* parent = nullptr);

    // An instance that panels may name by its object uuid.
    void addInstance(DAbstractPlugin* instance);
    // The instance's device link: `connected` while its device answers. Its panels show
    // it, and `linkState` (the link in the user's words) as their status channel "link",
    // whose reads the host answers itself.
    void setConnected(DAbstractPlugin* instance, bool connected, const QString& linkState = QString());

    bool attachBackend(DAbstractPluginBackend* backend, QString* refusal) override;
    void runCommand(QObject* context, const QString& objectId, const QString& name, const QVariantMap& data,
                    int timeout, EndHandler onEnd) override;

protected:
    void timerEvent(QTimerEvent* event) override;

private:
    struct DPendingRun {
        QPointer<QObject> context;
        QString objectId;
        QString name;
        QVariantMap data;
        int timeout = 0;
        EndHandler onEnd;
        quint64 runId = 0;  // set once running
        int timerId = 0;
        bool timedOut = false;
    };

    DAbstractPlugin* instance(const QString& objectId) const;
    void showLink(DAbstractPluginBackend* backend, const DAbstractPlugin* instance) const;
    void startNext();
    Outcome start(DPendingRun* run);
    void onFinished(quint64 runId, const QVariantMap& results);

    QPointer<DCommandRunner> m_runner;
    QList<QPointer<DAbstractPlugin>> m_instances;
    QSet<const DAbstractPlugin*> m_connected;
    QHash<const DAbstractPlugin*, QString> m_linkStates;
    QList<QPointer<DAbstractPluginBackend>> m_backends;
    QQueue<DPendingRun> m_queue;  // the head runs when its runId is set
};

#endif // D_BACKEND_HOST_H
