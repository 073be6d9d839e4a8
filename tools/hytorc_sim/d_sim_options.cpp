#include "d_sim_options.h"

#include "d_report_shaper.h"

#include <QCommandLineParser>

#include <climits>

namespace {

struct IntOption {
    QCommandLineOption option;
    int* target;
    int minimum;
    int maximum;
};

struct FlagOption {
    QCommandLineOption option;
    bool* target;
};

bool readInt(const QCommandLineParser& parser, const IntOption& entry, QString* error)
{
    if (!parser.isSet(entry.option))
        return true;
    bool ok = false;
    const int value = parser.value(entry.option).toInt(&ok);
    if (!ok || value < entry.minimum || value > entry.maximum) {
        *error = QStringLiteral("--%1 wants an integer from %2 to %3, not \"%4\"")
                     .arg(entry.option.names().constFirst())
                     .arg(entry.minimum)
                     .arg(entry.maximum)
                     .arg(parser.value(entry.option));
        return false;
    }
    *entry.target = value;
    return true;
}

}  // namespace

bool DSimOptions::parse(const QCoreApplication& app, QString* error)
{
    const QList<IntOption> intOptions{
        {QCommandLineOption("baud", "Line rate for byte pacing, 10 bits per byte (default 115200; 0 = no pacing).", "rate"),
         &baud, 0, 4000000},
        {QCommandLineOption("seed", "Seed of every random choice (default 1).", "n"), &seed, 0, INT_MAX},
        {QCommandLineOption("event-period", "Send a tightening event every ms milliseconds (default 0 = only on demand).",
                     "ms"),
         &eventPeriodMs, 0, INT_MAX},
        {QCommandLineOption("event-burst", "Send n reports back to back for each event (default 1).", "n"), &eventBurst, 1,
         1000},
        {QCommandLineOption("junk-period", "Fault: write a burst of mostly 0x00/0xFF bytes every ms milliseconds "
                                           "(default 0 = never).", "ms"),
         &junkPeriodMs, 0, INT_MAX},
        {QCommandLineOption("ignore-headers", "Fault: ignore the first n link headers.", "n"), &ignoreHeaders, 0, INT_MAX},
        {QCommandLineOption("noise", "Fault: write 1-4 noise bytes ('A', 'B', 'C'...) before pct % of the frames.", "pct"),
         &noisePercent, 0, 100},
        {QCommandLineOption("split-writes", "Fault: cut pct % of the frames into 2-4 writes at random points.", "pct"),
         &splitPercent, 0, 100},
        {QCommandLineOption("duplicate-writes", "Fault: write pct % of the frames twice.", "pct"), &duplicatePercent, 0, 100},
        {QCommandLineOption("bad-checksums", "Fault: corrupt the checksum of pct % of the frames.", "pct"),
         &badChecksumPercent, 0, 100},
        {QCommandLineOption("reply-delay", "Fault: wait ms milliseconds between acknowledging a request and replying.", "ms"),
         &replyDelayMs, 0, INT_MAX},
        {QCommandLineOption("error-replies", "Fault: answer every request with the line ERRORCODE,code.", "code"), &errorCode,
         1, 9999},
        {QCommandLineOption("drop-after", "Fault: drop the link once, after n frames received (the port vanishes).", "n"),
         &dropAfterFrames, 1, INT_MAX},
        {QCommandLineOption("reopen-after",
                     "After a drop, open a new port ms milliseconds later and repoint --link to it.", "ms"),
         &reopenAfterMs, 0, INT_MAX},
        {QCommandLineOption("reply-frames", "Fault: split every reply into at least k frames (default 1).", "k"),
         &replyFrames, 1, 1000},
        {QCommandLineOption("parent-pid", "End as the process pid, our parent, ends, however it ends.", "pid"), &parentPid,
         1, INT_MAX},
    };
    const QList<FlagOption> flagOptions{
        {QCommandLineOption("verbose", "Log every frame received and written."), &verbose},
        {QCommandLineOption("junk-before-reply",
                            "Fault: write a burst of mostly 0x00/0xFF bytes before every reply."),
         &junkBeforeReply},
        {QCommandLineOption("noise-nul", "Fault: put a stray 0x00 into the noise bytes of --noise."), &noiseWithNul},
        {QCommandLineOption("silent", "Fault: never answer anything (events are still sent)."), &silent},
        {QCommandLineOption("event-in-transaction",
                            "Send an event between each request's acknowledgement and its reply."),
         &eventInTransaction},
        {QCommandLineOption("endless-reply",
                            "Fault: stream the reply's frames over and over, none marked last, each after the "
                            "host's acknowledgement of the one before."),
         &endlessReply},
        {QCommandLineOption("remove-link-folder", "On exit, also remove the folder of --link once it is empty."),
         &removeLinkFolder},
    };
    const QCommandLineOption stateOption("state", "Tool state (JSON) to start from instead of the defaults.", "file");
    const QCommandLineOption linkOption("link", "Make a symlink at path pointing to the port (replaces a symlink).",
                                        "path");
    const QCommandLineOption scannerLinkOption(
        "scanner-link", "Also play a barcode scanner: a pseudo-terminal behind a symlink at path; \"scan TEXT\" writes "
        "TEXT and CR LF to it, \"unplug-scanner\" takes it away for 1 s.", "path");
    const QCommandLineOption recordOption(
        "record", "On exit, write the tool's state, every request received and every report sent (JSON) to file.", "file");
    const QCommandLineOption shapeOption(
        "event-shape", "Layout of the reports: split (default), inline, inline-15, data-15, short or mixed.", "shape");
    const QCommandLineOption framingOption("framing-word", "First line of every reply: RESPONSE (default) or HCD.",
                                           "word");

    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Plays a cordless HYTORC tool on a pseudo-terminal. Prints the port path as the first line of standard "
        "output, and the path of every port reopened after a drop on a line of its own. Standard input takes the "
        "lines \"event\" (send a tightening event), \"nok\" (the next one fails), \"scan TEXT\" (\\xHH for any byte), \"quiet\" (no more periodic events), \"drop\" (drop the link "
        "now) and \"quit\"; SIGINT and "
        "SIGTERM stop it too, the end of standard input does not.");
    const QCommandLineOption helpOption = parser.addHelpOption();
    const QCommandLineOption versionOption = parser.addVersionOption();
    parser.addOptions({stateOption, linkOption, scannerLinkOption, recordOption, shapeOption, framingOption});
    for (const IntOption& entry : intOptions)
        parser.addOption(entry.option);
    for (const FlagOption& entry : flagOptions)
        parser.addOption(entry.option);
    // A wrong option is a usage error (exit 2), as for the host that starts us.
    if (!parser.parse(app.arguments())) {
        *error = parser.errorText();
        return false;
    }
    if (parser.isSet(helpOption))
        parser.showHelp();
    if (parser.isSet(versionOption))
        parser.showVersion();

    statePath = parser.value(stateOption);
    linkPath = parser.value(linkOption);
    scannerLinkPath = parser.value(scannerLinkOption);
    recordPath = parser.value(recordOption);
    if (parser.isSet(shapeOption))
        eventShape = parser.value(shapeOption);
    if (!DReportShaper::isShape(eventShape)) {
        *error = QStringLiteral("--event-shape is one of %1").arg(DReportShaper::shapeNames().join(QStringLiteral(", ")));
        return false;
    }
    if (parser.isSet(framingOption))
        framingWord = parser.value(framingOption);
    if (framingWord != QLatin1String("RESPONSE") && framingWord != QLatin1String("HCD")) {
        *error = QStringLiteral("--framing-word is RESPONSE or HCD");
        return false;
    }
    for (const FlagOption& entry : flagOptions)
        *entry.target = parser.isSet(entry.option);
    for (const IntOption& entry : intOptions) {
        if (!readInt(parser, entry, error))
            return false;
    }
    return true;
}
