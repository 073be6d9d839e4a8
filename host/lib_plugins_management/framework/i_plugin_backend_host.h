#ifndef I_PLUGIN_BACKEND_HOST_H
#define I_PLUGIN_BACKEND_HOST_H

#include "i_messenger.h"

#include <QObject>
#include <QString>
#include <QVariantMap>
#include <QtPlugin>

#include <functional>

class DAbstractPluginBackend;

// How a panel's backend reaches the host: the host runtime implements this on a
// QObject and hands it to the QML engine that builds the panels
// (DAbstractPluginBackend::setEngineHost).
class IPluginBackendHost
{
public:
    // How a command run for a backend ended. error CeNoError: the command ran to
    // its end and `results` are its results (its "cmd_success" tells its outcome);
    // otherwise it did not run or did not end, and `reason` says why in one line.
    struct Outcome {
        IMessenger::EnErrorCode error = IMessenger::CeNoError;
        QString reason;
        QVariantMap results;
    };
    using EndHandler = std::function<void(const Outcome& outcome)>;

    virtual ~IPluginBackendHost() = default;

    // Links the backend to the plug-in instance its objectId names; false with
    // *refusal when there is none. The host then keeps its isConnected up to date.
    virtual bool attachBackend(DAbstractPluginBackend* backend, QString* refusal) = 0;

    // Runs the command `name` of the instance `objectId` with `data` as its arguments.
    // `onEnd` is called once, on a later turn of the event loop, unless `context` is
    // gone by then. `timeout` (ms, <= 0 for the host's default) bounds the run.
    virtual void runCommand(QObject* context, const QString& objectId, const QString& name,
                            const QVariantMap& data, int timeout, EndHandler onEnd) = 0;
};

#define IPluginBackendHost_iid "fr.vexo.rd.box.IPluginBackendHost"
Q_DECLARE_INTERFACE(IPluginBackendHost, IPluginBackendHost_iid)

#endif // I_PLUGIN_BACKEND_HOST_H
