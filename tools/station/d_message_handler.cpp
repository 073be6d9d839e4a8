#include "d_message_handler.h"

#include <QCoreApplication>
#include <QLoggingCategory>

#include <cstdio>

namespace {

QString& devicePath()
{
    static QString path;
    return path;
}

// Words of known faults and what the technician should look at; the first that fits.
struct DHint {
    const char* words;
    const char* check;
};
const DHint c_hints[] = {
    {"link not back", "check that the tool is switched on and in range"},
    {"Tool communication timeout", "check that the tool is switched on, in range and paired, and that %1 is its port"},
    {"No such file or directory", "check the port's name, and that the tool is paired and bound to it"},
    {"Permission denied", "check that this user may open %1 (group dialout)"},
    // What an RFCOMM port says on opening when its tool does not answer.
    {"Host is down", "check that the tool is switched on and in range"},
    {"Connection refused", "check that the tool is switched on and paired"},
};

} // namespace

void DMessageHandler::install(bool verbose)
{
    if (!verbose)
        QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.info=false"));
    qInstallMessageHandler(&DMessageHandler::handle);
}

void DMessageHandler::setDevicePath(const QString& path) { devicePath() = path; }

void DMessageHandler::say(const QString& message)
{
    const QString hint = hintFor(message);
    write(hint.isEmpty() ? message : message + QStringLiteral("; ") + hint);
}

void DMessageHandler::write(const QString& line)
{
    std::fprintf(stderr, "%s: %s\n", qPrintable(QCoreApplication::applicationName()), qPrintable(line));
    std::fflush(stderr);
}

QString DMessageHandler::hintFor(const QString& message)
{
    for (const DHint& hint : c_hints) {
        if (message.contains(QLatin1String(hint.words))) {
            const QString check = QString::fromLatin1(hint.check);
            return check.contains(QLatin1String("%1")) ? check.arg(devicePath()) : check;
        }
    }
    return QString();
}

// The plug-in's critical lines open with a line break of their own layout; their text is kept.
// Only faults get a hint: a --verbose trail of retries would repeat it.
void DMessageHandler::handle(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    if (type == QtDebugMsg || type == QtInfoMsg)
        write(message.trimmed());
    else
        say(message.trimmed());
}
