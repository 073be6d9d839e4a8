#include "d_cmd_listen.h"

#include "hytorc_hcp_constants.h"
#include "hytorc_torque.h"
#include "p_device_hytorc.h"

namespace {
constexpr int c_eventFields = 15;
// A line without the event header is only taken when it holds more than this many commas,
// while a header line needs only c_eventFields fields: the tool's reports are read so.
constexpr int c_minDataLineCommas = 14;
} // namespace

DCmdListen::DCmdListen(const QVariantMap& arguments, QObject* parent)
    : DHytorcToolCommand(QStringLiteral("listenEventsData"), QStringLiteral("stopListening"), arguments, parent)
{
    setDescription(QStringLiteral("Listen to spontaneous tightening events from HYTORC tool"));
    declareAResult(QStringLiteral("eventData"), QStringLiteral("varM"), QStringLiteral("Parsed tightening data from tool"),
                   QVariant());
    connect(hcpComm, &HytorcHcpComm::sigEventReady, this, [this](const QStringList& payloadLines) {
        if (!hasEnded())
            onEventReady(payloadLines);
    });
    connect(hcpComm, &HytorcHcpComm::sigJunkFrameDetected, this, &DCmdListen::onJunkFrameDetected);
}

DAbstractCommand* DCmdListen::createPrototype(QObject* plugin)
{
    return new DCmdListen(QVariantMap(), plugin);
}

bool DCmdListen::commandExecute()
{
    if (!DAbstractCommand::commandExecute())
        return false;
    plugin = qobject_cast<PDeviceHytorc*>(parent());
    listenInstructionId = addInstruction(
        QStringLiteral("driver"), QStringLiteral("listenEventsData"),
        {{QStringLiteral("subscription"), true}, {QStringLiteral("validator"), QStringLiteral("listen")}}, 2000,
        InstructionReplyDelegate(this, &DCmdListen::receiveEventData));
    return true;
}

QSharedPointer<ICommand> DCmdListen::newCommandInstance(const QVariantMap& arguments)
{
    return shareCommand(new DCmdListen(arguments, parent()));
}

// The driver's chunk number becomes the "eventCountNo" of the reports it carries.
bool DCmdListen::receiveEventData(quint64 instructionId, QVariantMap replyData)
{
    if (hcpComm && !hasEnded())
        lastFrameNumber = replyData.value(QStringLiteral("number"), 0).toInt();
    return DHytorcToolCommand::receiveEventData(instructionId, replyData);
}

void DCmdListen::onDataReady(QStringList payloadLines)
{
    onEventReady(payloadLines);
}

// A header line may carry its data after "SET EVENT LOG"; a data line on its own counts
// only when it holds more than 14 commas. Each complete line is one publication.
void DCmdListen::onEventReady(QStringList payloadLines)
{
    const QString header = QString::fromLatin1(c_eventLogPrefix);
    QString buffer;
    for (const QString& rawLine : payloadLines) {
        const QString line = rawLine.trimmed();
        if (line.isEmpty())
            continue;
        if (line.contains(header))
            buffer = QString(line).remove(header);
        else if (line.count(QLatin1Char(',')) > c_minDataLineCommas)
            buffer += line;
        const QStringList fields = buffer.split(QLatin1Char(','));
        if (fields.size() >= c_eventFields) {
            commandUpdateResult(QStringLiteral("eventData"), eventRecord(fields));
            buffer.clear();
        }
    }
}

// Engine errors and junk do not end the listening.
void DCmdListen::onError(QString errorMsg)
{
    Q_UNUSED(errorMsg)
}

void DCmdListen::onJunkFrameDetected() {}

QVariantMap DCmdListen::eventRecord(const QStringList& fields) const
{
    QVariantMap record{{QStringLiteral("date"), fields.at(0).trimmed()},
                       {QStringLiteral("time"), fields.at(1).trimmed()},
                       {QStringLiteral("duration"), fields.at(2).toInt(nullptr, 10)},
                       {QStringLiteral("jobId"), fields.at(3).trimmed()},
                       {QStringLiteral("profileName"), fields.at(4).trimmed()},
                       {QStringLiteral("mode"), fields.at(5).trimmed()},
                       {QStringLiteral("snugTorqueAngle"), fields.at(8).trimmed()},
                       {QStringLiteral("torqueUnit"), fields.at(10).trimmed()},
                       {QStringLiteral("direction"), fields.at(11).trimmed()},
                       {QStringLiteral("status"), fields.at(13).trimmed()},
                       {QStringLiteral("convertedTorque"), torqueHundredths(fields.at(14).toDouble())},
                       {QStringLiteral("angleUnit"), QStringLiteral("DEG")},
                       {QStringLiteral("eventCountNo"), lastFrameNumber}};
    if (plugin)
        record.insert(QStringLiteral("progId"),
                      plugin->getProperty(QStringLiteral("currentProgId"), static_cast<bool*>(nullptr)).toInt());
    return record;
}
