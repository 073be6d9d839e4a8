#ifndef P_DRIVER_SERIAL_H
#define P_DRIVER_SERIAL_H

#include "d_abstract_plugin.h"
#include "d_keep_alive.h"
#include "d_serial_link.h"
#include "d_serial_listeners.h"
#include "i_instruction_target.h"

// The host's serial driver: plays the target of the instructions that open, write,
// listen to and keep alive one serial line ("changeDevicePath", "closeConnection",
// "write", "listenEventsData", "setKeepAliveFonction").
class PDriverSerial : public DAbstractPlugin, public IInstructionTarget
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "fr.vexo.rd.box.PDriverSerial")
    Q_INTERFACES(IPlugin IInstructionTarget)
public:
    explicit PDriverSerial(const QUuid& objectUuid = QUuid(), QObject* parent = nullptr);

    void initPluginCommands() override;
    IPlugin* createInstance(const QUuid& objectUuid) const override;
    const char* pluginSubTypeName() const override;

    EnOpening openInstruction(quint64 instructionId, const QString& instruction, const QVariantMap& parameters,
                              IInstructionReplySink* sink, QString* refusal) override;
    void closeInstruction(quint64 instructionId) override;

signals:
    void sigBytesWritten(const QByteArray& bytes);
    void sigBytesRead(const QByteArray& bytes);
    void sigPortStateChanged(bool open, const QString& reason);
    // The device went away under an open port (cause: "line hung up", ...).
    void sigPortLost(const QString& devicePath, const QString& cause);

private:
    using InstructionOpener = EnOpening (PDriverSerial::*)(quint64, const QVariantMap&, IInstructionReplySink*,
                                                           QString*);
    static InstructionOpener openerOf(const QString& instruction);

    EnOpening openChangeDevicePath(quint64 instructionId, const QVariantMap& parameters, IInstructionReplySink* sink,
                                   QString* refusal);
    EnOpening openCloseConnection(quint64 instructionId, const QVariantMap& parameters, IInstructionReplySink* sink,
                                  QString* refusal);
    EnOpening openWrite(quint64 instructionId, const QVariantMap& parameters, IInstructionReplySink* sink,
                        QString* refusal);
    EnOpening openListenEventsData(quint64 instructionId, const QVariantMap& parameters,
                                   IInstructionReplySink* sink, QString* refusal);
    EnOpening openSetKeepAlive(quint64 instructionId, const QVariantMap& parameters, IInstructionReplySink* sink,
                               QString* refusal);
    static EnOpening answer(quint64 instructionId, IInstructionReplySink* sink, const QVariantMap& reply);

    void onBytesRead(const QByteArray& bytes);
    void onPortLost();

    // Members, not Qt children: destroyed in reverse order, before anything they point to.
    DSerialLink m_link;
    DSerialListeners m_listeners;
    DKeepAlive m_keepAlive;
};

#endif // P_DRIVER_SERIAL_H
