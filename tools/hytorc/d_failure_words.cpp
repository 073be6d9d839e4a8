#include "d_failure_words.h"

#include "d_message_handler.h"

namespace {
const QString c_toolError = QStringLiteral("Tool returned error: ");
const QString c_errorCode = QStringLiteral("ERRORCODE,");
} // namespace

QString DFailureWords::explain(const DFailure& f)
{
    const QString progId = f.arguments.value(QStringLiteral("progId")).toString();
    const bool readsList = f.command == QLatin1String("setProgram") || f.command == QLatin1String("getPresetData");
    if (f.reason.isEmpty() && readsList && !(progId.toInt() >= 1))
        return QStringLiteral("%1 failed: %2 (a whole number from 1: a position in listProgram's list)")
            .arg(f.command, progId.isEmpty() ? QStringLiteral("no progId given")
                                             : QStringLiteral("progId=%1 is no program id").arg(progId));
    if (f.reason.isEmpty() && readsList)
        return f.listRead ? QStringLiteral("%1 failed: no program %2 in the list that listProgram read").arg(f.command, progId)
                          : QStringLiteral("%1 failed: it reads the program list of listProgram, which must run first "
                                           "on the same command line (hytorc listProgram %1 progId=%2)")
                                .arg(f.command, progId.isEmpty() ? QStringLiteral("N") : progId);
    if (f.reason.startsWith(c_toolError + c_errorCode))
        return toolRefusal(f, f.reason.mid(c_toolError.size() + c_errorCode.size()));
    if (f.reason == QLatin1String("Tool communication timeout"))
        return QStringLiteral("%1 failed: %2; check that the tool is switched on, in range and paired, and that %3 is its port")
            .arg(f.command, f.reason, DMessageHandler::devicePath());
    if (!f.undeclared.isEmpty() && !f.declared.isEmpty())
        return QStringLiteral("%1 failed; it does not declare \"%2\" (declared: %3): check the name")
            .arg(f.command, f.undeclared.join(QStringLiteral("\", \"")), f.declared.join(QStringLiteral(", ")));
    return f.reason.isEmpty() ? QString() : QStringLiteral("%1 failed: %2").arg(f.command, f.reason);
}

QString DFailureWords::toolRefusal(const DFailure& f, const QString& code)
{
    if (f.command == QLatin1String("setLevelAccess"))
        return QStringLiteral("setLevelAccess failed: the tool refused access level \"%1\" (error code %2); "
                              "it knows L1 to L4")
            .arg(f.arguments.value(QStringLiteral("level")).toString().toUpper().trimmed(), code);
    return QStringLiteral("%1 failed: the tool refused the request (error code %2)").arg(f.command, code);
}
