#ifndef D_CMD_SET_LOCK_H
#define D_CMD_SET_LOCK_H

#include "d_hytorc_setting_command.h"

class PDeviceHytorc;

// "setLock": locks or unlocks the tool, and keeps the state in the plug-in property "lock".
class DCmdSetLock : public DHytorcSettingCommand
{
    Q_OBJECT
public:
    DCmdSetLock(const QVariantMap& arguments, QObject* parent);

    static DAbstractCommand* createPrototype(QObject* plugin);

    bool commandExecute() override;
    QSharedPointer<ICommand> newCommandInstance(const QVariantMap& arguments) override;

public slots:
    void onDataReady(QStringList payloadLines) override;

private:
    PDeviceHytorc* plugin = nullptr;
    bool lock = false;
};

#endif // D_CMD_SET_LOCK_H
