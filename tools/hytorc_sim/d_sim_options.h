#ifndef D_SIM_OPTIONS_H
#define D_SIM_OPTIONS_H

#include <QCoreApplication>
#include <QString>

// Everything the command line decides: the link, the tool's behaviour and the faults
// to inject. Percentages are per frame and drawn from the seeded generator.
class DSimOptions
{
public:
    QString statePath;
    QString linkPath;
    QString scannerLinkPath;         // --scanner-link: a scanner's pseudo-terminal behind this symlink
    QString framingWord = QStringLiteral("RESPONSE");
    int baud = 115200;  // 0: no pacing
    int seed = 1;
    int eventPeriodMs = 0;  // 0: events only on demand
    bool verbose = false;
    QString recordPath;              // where the state and the reports sent go on exit
    QString eventShape = QStringLiteral("split");
    int eventBurst = 1;              // reports per event
    bool eventInTransaction = false;  // an event between each request's ACK and its reply

    int ignoreHeaders = 0;
    bool junkBeforeReply = false;
    int junkPeriodMs = 0;  // 0: no junk of its own
    int noisePercent = 0;
    bool noiseWithNul = false;
    int splitPercent = 0;
    int duplicatePercent = 0;
    int badChecksumPercent = 0;
    int replyDelayMs = 0;
    int errorCode = 0;  // 0: honest replies
    bool silent = false;
    int dropAfterFrames = 0;  // 0: never
    int reopenAfterMs = -1;   // -1: the link stays down after a drop
    int replyFrames = 1;
    bool endlessReply = false;

    int parentPid = 0;            // 0: outlives whoever started it
    bool removeLinkFolder = false;  // the folder of linkPath goes too on exit

    // Reads the command line of `app`; --help and --version print and exit there.
    // False with a message in *error when a value is out of range.
    bool parse(const QCoreApplication& app, QString* error);
};

#endif // D_SIM_OPTIONS_H
