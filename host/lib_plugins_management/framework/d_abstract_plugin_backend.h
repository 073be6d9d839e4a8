#ifndef D_ABSTRACT_PLUGIN_BACKEND_H
#define D_ABSTRACT_PLUGIN_BACKEND_H

#include "fastdelegate.h"
#include "i_messenger.h"
#include "i_plugin_backend_host.h"

#include <QObject>
#include <QPointer>
#include <QQmlParserStatus>
#include <QQueue>
#include <QVariantMap>

class QQmlEngine;

using InstructionReplyDelegate = fastdelegate::FastDelegate2<quint64, const QVariantMap&, bool>;
using InstructionErrorDelegate =
    fastdelegate::FastDelegate3<quint64, IMessenger::EnErrorCode, const QVariantMap&, bool>;

// Base of the QML backends of maintenance panels. A panel names its plug-in instance
// (objectId); once the panel is built the backend links itself to the host of its
// QML engine, which then runs that instance's commands on its behalf:
// - treatments (queueTreatment) run one at a time, in the order queued; each ends with
//   applyTreatmentReply, then treatmentReleased. A treatment that cannot run (unknown
//   command, no host) ends the same way, with {"cmd_success": false, "error": reason}.
// - instructions (sendAnInstruction) run at once and answer through their callbacks.
class DAbstractPluginBackend : public QObject, public QQmlParserStatus
{
    Q_OBJECT
    Q_INTERFACES(QQmlParserStatus)
    Q_PROPERTY(QString name READ name WRITE setName NOTIFY nameChanged)
    Q_PROPERTY(QString objectId READ objectId WRITE setObjectId NOTIFY objectIdChanged)
    Q_PROPERTY(QString reference READ reference WRITE setReference NOTIFY referenceChanged)
    Q_PROPERTY(bool isConnected READ isConnected NOTIFY isConnectedChanged)
public:
    // At most this many treatments wait at once; queueTreatment refuses more.
    static constexpr int c_maxPendingTreatments = 16;

    // `moduleName`: the QML module of the backend (its objectName).
    DAbstractPluginBackend(const QString& moduleName, QObject* parent);
    ~DAbstractPluginBackend() override;

    QString name() const;
    void setName(const QString& name);
    QString objectId() const;
    void setObjectId(const QString& objectId);
    QString reference() const;
    void setReference(const QString& reference);
    bool isConnected() const;

    // True while a treatment runs or waits.
    bool hasPendingTreatments() const;

    // The host that the backends built by `engine` link to (an IPluginBackendHost).
    static void setEngineHost(QQmlEngine* engine, QObject* host);
    // Links to `host` (an IPluginBackendHost); false, with a warning, when it refuses.
    bool attachToHost(QObject* host);
    // Called by the host when the instance's device link opens or closes.
    void setConnected(bool connected);

    void classBegin() override;
    void componentComplete() override;

    // Receives the reply of a treatment; the result becomes treatmentReleased's `ok`.
    virtual bool applyTreatmentReply(int treatment, const QString& name, const QVariantMap& reply);

signals:
    void abstractBackendInitialized();
    void treatmentReleased(int kind, const QString& name, bool ok);
    // An instruction that did not run, or ran without success: for the panel to say so.
    void sigInstructionFailed(const QString& instruction, const QString& reason);
    void nameChanged();
    void objectIdChanged();
    void referenceChanged();
    void isConnectedChanged();

protected:
    // False when c_maxPendingTreatments are already waiting.
    bool queueTreatment(int kind, const QString& name, const QVariantMap& data);
    // Runs the command `instruction` of the instance; `onReply` gets its results when it
    // ran to its end, `onError` the reason when it did not. Returns the instruction's id.
    quint64 sendAnInstruction(const QString& instruction, const QVariantMap& parameters,
                              InstructionReplyDelegate onReply, int timeout, InstructionErrorDelegate onError);

private:
    struct DTreatment {
        int kind;
        QString name;
        QVariantMap data;
    };

    void run(const QString& command, const QVariantMap& data, int timeout, IPluginBackendHost::EndHandler onEnd);
    void runNextTreatment();
    void onTreatmentEnded(const IPluginBackendHost::Outcome& outcome);
    void onInstructionEnded(quint64 id, const QString& instruction, const IPluginBackendHost::Outcome& outcome,
                            InstructionReplyDelegate onReply, InstructionErrorDelegate onError);

    QString m_name;
    QString m_objectId;
    QString m_reference;
    bool m_connected = false;
    QPointer<QObject> m_hostObject;
    IPluginBackendHost* m_host = nullptr;
    QQueue<DTreatment> m_treatments;  // the head runs when m_treatmentRunning
    bool m_treatmentRunning = false;
    quint64 m_nextInstructionId = 1;
};

#endif // D_ABSTRACT_PLUGIN_BACKEND_H
