#ifndef D_CMD_LIST_PROGRAMS_H
#define D_CMD_LIST_PROGRAMS_H

#include "d_hytorc_tool_command.h"

#include <QVariantList>

class PDeviceHytorc;

// "listProgram": reads every job profile of the tool, returns them as program records
// and keeps them in the plug-in ("programList", "programListCount", "currentProgId")
// for setProgram and getPresetData.
class DCmdListPrograms : public DHytorcToolCommand
{
    Q_OBJECT
public:
    DCmdListPrograms(const QVariantMap& arguments, QObject* parent);

    static DAbstractCommand* createPrototype(QObject* plugin);

    bool commandExecute() override;
    QSharedPointer<ICommand> newCommandInstance(const QVariantMap& arguments) override;

public slots:
    void onDataReady(QStringList payloadLines) override;

private:
    void parseProgramLine(const QString& line);
    void storeInPlugin();

    QVariantList programs;
    PDeviceHytorc* plugin = nullptr;
};

#endif // D_CMD_LIST_PROGRAMS_H
