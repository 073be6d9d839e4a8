#ifndef D_HYTORC_TOOL_COMMAND_H
#define D_HYTORC_TOOL_COMMAND_H

#include "d_abstract_command.h"

#include <QPointer>
#include <QStringList>

#include "hytorc_hcp_comm.h"

// What every command that talks to the tool shares: its own HCP engine, the
// driver's listening instruction that feeds the engine, the forwarding of the
// engine's frames to the driver, and the end of the command.
// The host may keep a finished command alive: once it has ended, nothing the engine
// or the driver still does (a late reply frame, a retry timer) reaches it.
class DHytorcToolCommand : public DAbstractCommand
{
    Q_OBJECT
public:
    DHytorcToolCommand(const QString& name, const QVariantMap& arguments, QObject* parent);
    DHytorcToolCommand(const QString& name, const QString& stopName, const QVariantMap& arguments,
                       QObject* parent);

    void finishTheCommand(bool& ok) override;

public slots:
    virtual bool receiveEventData(quint64 instructionId, QVariantMap replyData);
    virtual void onDataReady(QStringList payloadLines) = 0;
    virtual void onError(QString errorMsg);

protected:
    // Opens the listening instruction with `listenParameters`, then hands `request` to the engine.
    void startTransaction(const QVariantMap& listenParameters, const QString& request);
    void resetEngine();
    // Closes the listening instruction, then ends the command.
    void finishCommand();
    bool hasEnded() const { return ended; }

    QPointer<HytorcHcpComm> hcpComm;
    quint64 listenInstructionId = 0;

private:
    void forwardWrite(const QByteArray& packet);

    bool ended = false;
};

#endif // D_HYTORC_TOOL_COMMAND_H
