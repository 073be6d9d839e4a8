#include "d_web_status.h"

#include "d_mqtt_reporter.h"
#include "d_op_server.h"
#include "d_result_journal.h"
#include "d_station_part.h"
#include "d_station_service.h"
#include "d_web_feed.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

constexpr int c_pollMs = 1000;

QByteArray compact(const QJsonObject& object) { return QJsonDocument(object).toJson(QJsonDocument::Compact); }

QJsonValue orNull(const QString& text) { return text.isEmpty() ? QJsonValue() : QJsonValue(text); }

} // namespace

DWebStatus::DWebStatus(DWebFeed* feed, DStationService* service, DStationPart* part, DResultJournal* journal,
                       QObject* parent)
    : QObject(parent)
    , m_feed(feed)
    , m_service(service)
    , m_part(part)
{
    connect(service, &DStationService::sigToolIdentified, this, &DWebStatus::onChanged);
    connect(service, &DStationService::sigToolStateChanged, this, &DWebStatus::onChanged);
    connect(service, &DStationService::sigProgramSelected, this, &DWebStatus::onChanged);
    connect(part, &DStationPart::sigIdentifiersChanged, this, &DWebStatus::onChanged);
    connect(part, &DStationPart::sigBatchChanged, this, &DWebStatus::onChanged);
    connect(part, &DStationPart::sigLockAtBatchDoneChanged, this, &DWebStatus::onChanged);
    connect(journal, &DResultJournal::sigEventRecorded, this, &DWebStatus::onEventRecorded);
    connect(service, &DStationService::sigToolLockSet, this, &DWebStatus::onToolLockSet);
    connect(&m_poll, &QTimer::timeout, this, &DWebStatus::onChanged);
    m_poll.start(c_pollMs);
    m_feed->changed("station", QJsonDocument(QJsonArray{service->station()}).toJson(QJsonDocument::Compact).mid(1).chopped(1));
    onChanged();
}

void DWebStatus::setLinks(const DOpServer* opServer, const DMqttReporter* mqtt)
{
    m_opServer = opServer;
    m_mqtt = mqtt;
    onChanged();
}

void DWebStatus::onChanged()
{
    m_feed->changed("tool", toolJson());
    m_feed->changed("part", partJson());
    m_feed->changed("links", linksJson());
}

void DWebStatus::onEventRecorded(const QString& kind, const QString& text)
{
    if (kind == QLatin1String("lock"))
        m_lockReason = text;
    else if (kind == QLatin1String("unlock"))
        m_lockReason.clear();
    onChanged();
}

// Error-proofing says why in the journal's events; a lock nobody else asked for is a client's.
void DWebStatus::onToolLockSet(bool locked, const QString& requester)
{
    if (!requester.isEmpty())
        return;
    m_clientLocked = locked;
    onChanged();
}

QByteArray DWebStatus::toolJson() const
{
    static const char* const c_states[] = {"stopped", "connecting", "identifying", "listening", "waiting"};
    const int progId = m_service->currentProgId();
    const QVariantList programs = m_service->programs();
    const QString programName = progId > 0 && progId <= programs.size()
        ? programs.at(progId - 1).toMap().value(QStringLiteral("name")).toString() : QString();
    QString why = m_lockReason;
    if (m_part->isLockedAtBatchDone())
        why = QStringLiteral("the batch is done");
    if (m_clientLocked)
        why = QStringLiteral("locked by a line controller (Open Protocol 0042)");
    return compact({{"connected", m_service->isToolConnected()},
                    {"state", QLatin1String(c_states[m_service->state()])},
                    {"serial", orNull(m_service->toolSerial())},
                    {"activeProgram", progId > 0 ? QJsonValue(progId) : QJsonValue()},
                    {"programName", orNull(programName)},
                    {"locked", !why.isEmpty()},
                    {"lockedWhy", orNull(why)},
                    {"since", orNull(m_service->connectedSince().toUTC().toString(Qt::ISODateWithMs))}});
}

QByteArray DWebStatus::partJson() const
{
    static const char* const c_batch[] = {"not completed", "completed", "not used"};
    return compact({{"identifiers", QJsonArray::fromStringList(m_part->identifiers())},
                    {"activeProgram", m_part->activeProgram()},
                    {"batchSize", m_part->batchSize()},
                    {"batchCounter", m_part->batchCounter()},
                    {"batchStatus", QLatin1String(c_batch[m_part->batchStatus()])}});
}

QByteArray DWebStatus::linksJson() const
{
    return compact({{"openProtocol", m_opServer ? QJsonValue(QJsonObject{{"clients", m_opServer->clientCount()}})
                                                : QJsonValue()},
                    {"mqtt", m_mqtt ? QJsonValue(QJsonObject{{"connected", m_mqtt->isConnected()}}) : QJsonValue()}});
}
