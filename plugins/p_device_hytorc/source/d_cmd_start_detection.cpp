#include "d_cmd_start_detection.h"

#include "process_end.h"

#include <QRegularExpression>

#include <algorithm>

namespace {
constexpr int c_listingWaitMs = 2000;
constexpr int c_killWaitMs = 500;
} // namespace

const QStringList DCmdStartDetection::c_detectionNames{QStringLiteral("HYTORC")};

DCmdStartDetection::DCmdStartDetection(const QVariantMap& arguments, QObject* parent)
    : DAbstractCommand(QStringLiteral("startDetection"), QStringLiteral("stopListening"), arguments, parent)
    , scanProcess(new QProcess(this))
{
    setDescription(QStringLiteral("Bluetooth device discovery for HYTORC tools"));
    declareAResult(QStringLiteral("lastResults"), QStringLiteral("varL"), QStringLiteral("Found device list"),
                   QVariant());
    connect(scanProcess, &QProcess::readyReadStandardOutput, this, &DCmdStartDetection::onProcessOutput);
    connectProcessEnd(scanProcess.data(), this, &DCmdStartDetection::onProcessFinished);
}

DAbstractCommand* DCmdStartDetection::createPrototype(QObject* plugin)
{
    return new DCmdStartDetection(QVariantMap(), plugin);
}

bool DCmdStartDetection::commandExecute()
{
    if (!DAbstractCommand::commandExecute())
        return false;
    foundDevices.clear();
    // The tools bluetoothctl already knows; a hanging listing is given up after 2 s.
    QProcess listing;
    listing.start(QStringLiteral("bluetoothctl"), {QStringLiteral("devices")}, QIODevice::ReadWrite);
    if (listing.waitForFinished(c_listingWaitMs))
        parseDetectionOutput(QString::fromUtf8(listing.readAllStandardOutput()));
    endProcess(&listing, c_killWaitMs);
    // Line-buffered so that each device shows up as soon as it is seen.
    scanProcess->start(QStringLiteral("stdbuf"),
                       {QStringLiteral("-oL"), QStringLiteral("bluetoothctl"), QStringLiteral("--timeout"),
                        QStringLiteral("10"), QStringLiteral("scan"), QStringLiteral("on")},
                       QIODevice::ReadWrite);
    return true;
}

void DCmdStartDetection::finishTheCommand(bool& success)
{
    endProcess(scanProcess, c_killWaitMs);
    DAbstractCommand::finishTheCommand(success);
}

QSharedPointer<ICommand> DCmdStartDetection::newCommandInstance(const QVariantMap& arguments)
{
    return shareCommand(new DCmdStartDetection(arguments, parent()));
}

void DCmdStartDetection::onProcessOutput()
{
    if (scanProcess)
        parseDetectionOutput(QString::fromUtf8(scanProcess->readAllStandardOutput()));
}

// However the scan ended, the command went well: what it found is in "lastResults".
void DCmdStartDetection::onProcessFinished(int exitCode, QProcess::ExitStatus exitStatus)
{
    Q_UNUSED(exitCode)
    Q_UNUSED(exitStatus)
    bool success = true;
    finishTheCommand(success);
}

// A chunk may end inside a line: each piece is judged on its own. The first record
// seen for an address in a run stays.
void DCmdStartDetection::parseDetectionOutput(const QString& text)
{
    static const QRegularExpression macPattern(QStringLiteral("([0-9A-F:]{17})"),
                                               QRegularExpression::CaseInsensitiveOption);
    bool added = false;
    for (const QString& piece : text.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const QString part = piece.trimmed();
        const QRegularExpressionMatch match = macPattern.match(part);
        if (part.isEmpty() || !match.hasMatch())
            continue;
        const QString mac = match.captured(1).toUpper();
        const bool isTool = std::any_of(c_detectionNames.cbegin(), c_detectionNames.cend(), [&](const QString& n) {
            return part.contains(n, Qt::CaseInsensitive);
        });
        if (!isTool || foundDevices.contains(mac))
            continue;
        QString name = part.section(mac, 1, 1).trimmed();
        if (name.isEmpty())
            name = QStringLiteral("HYTORC Tool");
        foundDevices.insert(mac, {{QStringLiteral("mac"), name}, {QStringLiteral("sn"), mac}});
        added = true;
    }
    if (!added)
        return;
    QVariantList list;
    for (const QVariantMap& record : qAsConst(foundDevices))
        list << record;
    commandUpdateResults({{QStringLiteral("lastResults"), list}});
}
