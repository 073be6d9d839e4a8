#include "d_cmd_list_programs.h"

#include "hytorc_hcp_constants.h"
#include "p_device_hytorc.h"

namespace {
// Fields of a profile line after the four that every line has.
const QStringList c_optionalKeys{QStringLiteral("angle"), QStringLiteral("release"), QStringLiteral("fastener")};
constexpr int c_requiredFields = 4;
} // namespace

DCmdListPrograms::DCmdListPrograms(const QVariantMap& arguments, QObject* parent)
    : DHytorcToolCommand(QStringLiteral("listProgram"), arguments, parent)
{
    setDescription(QStringLiteral("List all programs from HYTORC device"));
    declareAResult(QStringLiteral("programList"), QStringLiteral("varL"),
                   QStringLiteral("List of programs found on the device"), QVariant());
    declareAResult(QStringLiteral("cmd_success"), QStringLiteral("bool"), QStringLiteral("Command success status"),
                   false);
}

DAbstractCommand* DCmdListPrograms::createPrototype(QObject* plugin)
{
    return new DCmdListPrograms(QVariantMap(), plugin);
}

bool DCmdListPrograms::commandExecute()
{
    if (!DAbstractCommand::commandExecute() || !hcpComm)
        return false;
    plugin = qobject_cast<PDeviceHytorc*>(parent());
    programs.clear();
    startTransaction(QVariantMap(), QString::fromLatin1(c_cmdGetJobsProfile));
    return true;
}

QSharedPointer<ICommand> DCmdListPrograms::newCommandInstance(const QVariantMap& arguments)
{
    return shareCommand(new DCmdListPrograms(arguments, parent()));
}

void DCmdListPrograms::onDataReady(QStringList payloadLines)
{
    programs.clear();
    for (const QString& line : payloadLines)
        parseProgramLine(line);
    if (plugin)
        storeInPlugin();
    resetEngine();
    commandUpdateResults({{QStringLiteral("programList"), programs}, {QStringLiteral("cmd_success"), true}});
    finishCommand();
}

// name,type,unit,torque[,angle[,release[,fastener]]], all kept as text; the id is the
// record's 1-based position among the accepted lines (a short line takes none).
void DCmdListPrograms::parseProgramLine(const QString& line)
{
    const QStringList fields = line.split(QLatin1Char(','));
    if (fields.size() < c_requiredFields)
        return;
    QVariantMap record{{QStringLiteral("name"), fields.at(0).trimmed()},
                       {QStringLiteral("type"), fields.at(1).trimmed()},
                       {QStringLiteral("unit"), fields.at(2).trimmed()},
                       {QStringLiteral("torque"), fields.at(3).trimmed()}};
    for (int i = 0; i < c_optionalKeys.size() && c_requiredFields + i < fields.size(); ++i)
        record.insert(c_optionalKeys.at(i), fields.at(c_requiredFields + i).trimmed());
    record.insert(QStringLiteral("progId"), programs.size() + 1);
    programs.append(record);
}

void DCmdListPrograms::storeInPlugin()
{
    plugin->setProperty(QStringLiteral("programList"), programs, true);
    plugin->setProperty(QStringLiteral("programListCount"), programs.size(), true);
    if (!programs.isEmpty())
        plugin->setProperty(QStringLiteral("currentProgId"), 1, true);
}
