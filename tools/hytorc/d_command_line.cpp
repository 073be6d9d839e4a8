#include "d_command_line.h"

#include <QCommandLineParser>
#include <QCoreApplication>

namespace {

const char* const c_description =
    "Runs commands of the HYTORC device plug-in against a tool, the way the workstation does.\n"
    "Without --device it starts the tool simulator on a pseudo-terminal and uses it;\n"
    "with --bluetooth, searchAndConnect serialId=MAC connects a real tool.\n\n"
    "  hytorc [options] COMMAND [name=value ...] [COMMAND [name=value ...] ...]\n"
    "  hytorc [options] list\n\n"
    "Commands run in sequence in one process, so what one stores in the plug-in\n"
    "(the program list) is there for the next. A recurrent command streams its\n"
    "results until Ctrl-C or --for, then is stopped.";

// Timers count whole milliseconds in an int: the longest span they can honour.
constexpr double c_maxSeconds = 2147483;

// From 1 ms on (timers count milliseconds), or from 0 when `zeroAllowed`; NaN fails every comparison.
bool parseSeconds(const QCommandLineParser& parser, const QString& option, bool zeroAllowed, double* seconds,
                  QString* message)
{
    if (!parser.isSet(option))
        return true;
    bool ok = false;
    const double value = parser.value(option).toDouble(&ok);
    if (!ok || !(value >= (zeroAllowed ? 0 : 0.001)) || value > c_maxSeconds) {
        *message = QStringLiteral("--%1 takes a number of seconds from %2 to %3, not \"%4\"")
                       .arg(option, zeroAllowed ? QStringLiteral("0") : QStringLiteral("0.001"))
                       .arg(c_maxSeconds, 0, 'f', 0)
                       .arg(parser.value(option));
        return false;
    }
    *seconds = value;
    return true;
}

} // namespace

bool DCommandLine::parse(const QStringList& arguments, QString* message)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(c_description));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addOptions({
        {"device", "Serial device of the tool (e.g. /dev/rfcomm0). Default: the simulator.", "path"},
        {"bluetooth", "Open no port up front: searchAndConnect binds /dev/rfcomm0 and opens it for the next commands."},
        {"sim-arg", "Extra argument for the simulator (repeat it), e.g. --sim-arg=--reply-frames=3.", "arg"},
        {"plugins", "Folder of the plug-ins (default: ../plugins beside this program).", "dir"},
        {"json", "One JSON object per line."},
        {"trace", "Print every frame both ways on stderr."},
        {"for", "How long a recurrent command streams before it is stopped.", "seconds"},
        {"output", "Also append each result of a recurrent command to file as it arrives: JSON lines, "
                   "or CSV with a header row when file ends in .csv.", "file"},
        {"timeout", "Stop a command that has not finished after this long (default 60).", "seconds"},
        {"reconnect", "After the link is lost, how long to try to reopen the port before the next command "
                      "(default 5; 0: give up at once).", "seconds"},
        {"verbose", "Print every log line of the host and the plug-ins, not only warnings and errors."},
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
    if (parser.isSet("version")) {
        helpShown = true;
        *message = QCoreApplication::applicationName() + QLatin1Char(' ') + QCoreApplication::applicationVersion()
            + QLatin1Char('\n');
        return false;
    }
    device = parser.value("device");
    outputPath = parser.value("output");
    bluetooth = parser.isSet("bluetooth");
    if (bluetooth && !device.isEmpty()) {
        *message = QStringLiteral("--bluetooth and --device exclude each other");
        return false;
    }
    simulatorArguments = parser.values("sim-arg");
    // An unset shell variable must not quietly turn a real tool into the simulator.
    if (parser.isSet("device") && device.isEmpty()) {
        *message = QStringLiteral("--device needs a path (leave it out to use the tool simulator)");
        return false;
    }
    if (!device.isEmpty() && !simulatorArguments.isEmpty()) {
        *message = QStringLiteral("--sim-arg is for the tool simulator, which --device replaces");
        return false;
    }
    pluginDirectory = parser.isSet("plugins")
        ? parser.value("plugins")
        : QCoreApplication::applicationDirPath() + QStringLiteral("/../plugins");
    json = parser.isSet("json");
    trace = parser.isSet("trace");
    verbose = parser.isSet("verbose");
    if (!parseSeconds(parser, "for", false, &forSeconds, message)
        || !parseSeconds(parser, "timeout", false, &timeoutSeconds, message)
        || !parseSeconds(parser, "reconnect", true, &reconnectSeconds, message))
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
