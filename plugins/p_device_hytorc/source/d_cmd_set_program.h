#ifndef D_CMD_SET_PROGRAM_H
#define D_CMD_SET_PROGRAM_H

#include "d_hytorc_tool_command.h"

class PDeviceHytorc;

// "setProgram": makes one program of the stored list the tool's active job profile
// ("SET JOBS PROFILE"), records it as "currentProgId" and returns its preset.
class DCmdSetProgram : public DHytorcToolCommand
{
    Q_OBJECT
public:
    DCmdSetProgram(const QVariantMap& arguments, QObject* parent);

    static DAbstractCommand* createPrototype(QObject* plugin);

    bool commandExecute() override;
    QSharedPointer<ICommand> newCommandInstance(const QVariantMap& arguments) override;

public slots:
    void onDataReady(QStringList payloadLines) override;
    void onError(QString errorMsg) override;
    // Part of the command's interface to the host; no reply is routed to it.
    bool rcvWriteReply(quint64 instructionId, QVariantMap replyData);

private:
    static QString profileText(const QVariantMap& record);
    static QVariantMap presetData(const QVariantMap& record);

    PDeviceHytorc* plugin = nullptr;
    int progId = 0;
};

#endif // D_CMD_SET_PROGRAM_H
