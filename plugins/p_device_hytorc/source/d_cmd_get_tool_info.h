#ifndef D_CMD_GET_TOOL_INFO_H
#define D_CMD_GET_TOOL_INFO_H

#include "d_hytorc_tool_command.h"

// "getToolInfo": the tool's identification block as one map.
class DCmdGetToolInfo : public DHytorcToolCommand
{
    Q_OBJECT
public:
    DCmdGetToolInfo(const QVariantMap& arguments, QObject* parent);

    static DAbstractCommand* createPrototype(QObject* plugin);

    bool commandExecute() override;
    QSharedPointer<ICommand> newCommandInstance(const QVariantMap& arguments) override;

public slots:
    void onDataReady(QStringList payloadLines) override;
};

#endif // D_CMD_GET_TOOL_INFO_H
