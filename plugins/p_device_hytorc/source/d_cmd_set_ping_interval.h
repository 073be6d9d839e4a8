#ifndef D_CMD_SET_PING_INTERVAL_H
#define D_CMD_SET_PING_INTERVAL_H

#include "d_hytorc_setting_command.h"

// "setPingInterval": sets the interval of the tool's HCP-e pings.
class DCmdSetPingInterval : public DHytorcSettingCommand
{
    Q_OBJECT
public:
    DCmdSetPingInterval(const QVariantMap& arguments, QObject* parent);

    static DAbstractCommand* createPrototype(QObject* plugin);

    bool commandExecute() override;
    QSharedPointer<ICommand> newCommandInstance(const QVariantMap& arguments) override;
};

#endif // D_CMD_SET_PING_INTERVAL_H
