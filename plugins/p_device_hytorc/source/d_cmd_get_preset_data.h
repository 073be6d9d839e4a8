#ifndef D_CMD_GET_PRESET_DATA_H
#define D_CMD_GET_PRESET_DATA_H

#include "d_abstract_command.h"

// "getPresetData": one program of the stored list, in the host's units and key names.
// It does not talk to the tool.
class DCmdGetPresetData : public DAbstractCommand
{
    Q_OBJECT
public:
    DCmdGetPresetData(const QVariantMap& arguments, QObject* parent);

    static DAbstractCommand* createPrototype(QObject* plugin);
    static QVariantMap buildPresetData(const QVariantMap& record);

    bool commandExecute() override;
    QSharedPointer<ICommand> newCommandInstance(const QVariantMap& arguments) override;

private:
    // Publishes the outcome and ends the command; returns the end's flag.
    bool finishWith(bool success, const QVariantMap& preset);
};

#endif // D_CMD_GET_PRESET_DATA_H
