#ifndef D_CMD_SET_LEVEL_ACCESS_H
#define D_CMD_SET_LEVEL_ACCESS_H

#include "d_hytorc_setting_command.h"

// "setLevelAccess": sets the tool's access level (L1 to L4, as the tool knows them).
class DCmdSetLevelAccess : public DHytorcSettingCommand
{
    Q_OBJECT
public:
    DCmdSetLevelAccess(const QVariantMap& arguments, QObject* parent);

    static DAbstractCommand* createPrototype(QObject* plugin);

    bool commandExecute() override;
    QSharedPointer<ICommand> newCommandInstance(const QVariantMap& arguments) override;
};

#endif // D_CMD_SET_LEVEL_ACCESS_H
