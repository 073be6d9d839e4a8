#ifndef D_CMD_CHECK_SERIAL_ID_H
#define D_CMD_CHECK_SERIAL_ID_H

#include "d_abstract_command.h"

// "checkSerialId": says whether a tool address was given, and hands it back trimmed.
class DCmdCheckSerialId : public DAbstractCommand
{
    Q_OBJECT
public:
    DCmdCheckSerialId(const QVariantMap& arguments, QObject* parent);

    static DAbstractCommand* createPrototype(QObject* plugin);

    bool commandExecute() override;
    QSharedPointer<ICommand> newCommandInstance(const QVariantMap& arguments) override;
};

#endif // D_CMD_CHECK_SERIAL_ID_H
