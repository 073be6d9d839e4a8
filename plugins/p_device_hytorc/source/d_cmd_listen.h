#ifndef D_CMD_LISTEN_H
#define D_CMD_LISTEN_H

#include "d_hytorc_tool_command.h"

class PDeviceHytorc;

// "listenEventsData" (stopped by "stopListening"): sends nothing; publishes every
// tightening report the tool sends by itself as one "eventData" record. Engine errors
// and junk never stop it.
class DCmdListen : public DHytorcToolCommand
{
    Q_OBJECT
public:
    DCmdListen(const QVariantMap& arguments, QObject* parent);

    static DAbstractCommand* createPrototype(QObject* plugin);

    bool commandExecute() override;
    QSharedPointer<ICommand> newCommandInstance(const QVariantMap& arguments) override;

public slots:
    bool receiveEventData(quint64 instructionId, QVariantMap replyData) override;
    void onDataReady(QStringList payloadLines) override;
    void onEventReady(QStringList payloadLines);
    void onError(QString errorMsg) override;
    void onJunkFrameDetected();

private:
    QVariantMap eventRecord(const QStringList& fields) const;

    PDeviceHytorc* plugin = nullptr;
    int lastFrameNumber = -1;
};

#endif // D_CMD_LISTEN_H
