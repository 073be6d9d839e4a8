#include "d_command_line.h"

#include <QCommandLineParser>
#include <QCoreApplication>

namespace {

const char* const c_description =
    "Runs commands of the HYTORC device plug-in against a tool, the way the workstation does.\n"
    "Without --device it starts the tool simulator on a pseudo-terminal and uses it.\n\n"
    "  hytorc [options] COMMAND [name=value ...] [COMMAND [name=value ...] ...]\n"
    "  hytorc [options] list\n\n"
    "Commands run in sequence in one process, so what one stores in the plug-in\n"
    "(the program list) is there for the next. A recurrent command streams its\n"
    "results until Ctrl-C or --for, then is stopped.";

bool parseSeconds(const QCommandLineParser& parser, const QString& option, double* seconds, QString* message)
{
    if (!parser.isSet(option))
        return true;
    bool ok = false;
    *seconds = parser.value(option).toDouble(&ok);
    if (!ok || *seconds <= 0) {
        *message = QStringLiteral("--%1 takes a number of seconds above 0, not \"%2\"").arg(option, parser.value(option));
        return false;
    }
    return true;
}

} // namespace

bool DCommandLine::parse(const QStringList& arguments, QString* message)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(c_description));
    parser.addHelpOption();
    parser.addOptions({
        {"device", "Serial device of the tool (e.g. /dev/rfcomm0). Default: the simulator.", "path"},
        {"sim-arg", "Extra argument for the simulator (repeat it), e.g. --sim-arg=--reply-frames=3.", "arg"},
        {"plugins", "Folder of the plug-ins (default: ../plugins beside this program).", "dir"},
        {"json", "One JSON object per line."},
        {"trace", "Print every frame both ways on stderr."},
        {"for", "How long a recurrent command streams before it is stopped.", "seconds"},
        {"output", "Also append each result of a recurrent command to file as it arrives: JSON lines, "
                   "or CSV with a header row when file ends in .csv.", "file"},
        {"timeout", "Stop a command that has not finished after this long (default 60).", "seconds"},
    });
    parser.addPositionalArgument("command", "A command of the plug-in, then its name=value parameters; or list.");
    if (!parser.parse(arguments)) {
        *message = parser.errorText();
        return false;
    }
    if (parser.isSet("help")) {
        helpShown = true;
        *message = parser.helpText();
        return false;
    }
    device = parser.value("device");
    outputPath = parser.value("output");
    simulatorArguments = parser.values("sim-arg");
    pluginDirectory = parser.isSet("plugins")
        ? parser.value("plugins")
        : QCoreApplication::applicationDirPath() + QStringLiteral("/../plugins");
    json = parser.isSet("json");
    trace = parser.isSet("trace");
    timeoutSeconds = 60;
    if (!parseSeconds(parser, "for", &forSeconds, message) || !parseSeconds(parser, "timeout", &timeoutSeconds, message))
        return false;
    return parseOrders(parser.positionalArguments(), message);
}

// A word without '=' names a command; name=value words belong to the command before them.
bool DCommandLine::parseOrders(const QStringList& words, QString* message)
{
    if (words == QStringList{QStringLiteral("list")}) {
        listOnly = true;
        return true;
    }
    for (const QString& word : words) {
        if (!word.contains(QLatin1Char('='))) {
            orders.append({word, {}});
        } else if (orders.isEmpty()) {
            *message = QStringLiteral("parameter \"%1\" comes before any command").arg(word);
            return false;
        } else {
            orders.last().assignments << word;
        }
    }
    if (orders.isEmpty()) {
        *message = QStringLiteral("no command given (try: hytorc list)");
        return false;
    }
    return true;
}
