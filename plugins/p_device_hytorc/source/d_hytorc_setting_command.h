#ifndef D_HYTORC_SETTING_COMMAND_H
#define D_HYTORC_SETTING_COMMAND_H

#include "d_hytorc_tool_command.h"

// A command that changes one setting of the tool with a single request. Any completed
// reply is the tool's acceptance; its results "cmd_success" and "doneOk" are always equal.
class DHytorcSettingCommand : public DHytorcToolCommand
{
    Q_OBJECT
public:
    DHytorcSettingCommand(const QString& name, const QVariantMap& arguments, QObject* parent);

    // Also for the keep-alive, which has the same results without an engine.
    static void declareSettingResults(DAbstractCommand* command);
    static void publishSettingResults(DAbstractCommand* command, bool ok);

public slots:
    void onDataReady(QStringList payloadLines) override;
    void onError(QString errorMsg) override;
};

#endif // D_HYTORC_SETTING_COMMAND_H
