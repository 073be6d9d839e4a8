#include "d_error_proofing.h"

#include "d_station_part.h"
#include "d_station_service.h"

const QString DErrorProofing::c_requester = QStringLiteral("error-proofing");

QList<DStationConfig::DKey> DErrorProofing::configKeys()
{
    return {{QStringLiteral("require-identifier"), QStringLiteral("false"), QStringLiteral("true or false"),
             [](const QString& text) { return text == QLatin1String("true") || text == QLatin1String("false"); },
             QStringLiteral("Locks the tool while no identifier is current and once the program's batch is done."), true}};
}

DErrorProofing::DErrorProofing(DStationPart* part, DStationService* service, QObject* parent)
    : QObject(parent)
    , m_part(part)
    , m_service(service)
{
    connect(part, &DStationPart::sigIdentifiersChanged, this, &DErrorProofing::update);
    connect(part, &DStationPart::sigLockAtBatchDoneChanged, this, &DErrorProofing::update);
    connect(service, &DStationService::sigToolStateChanged, this, &DErrorProofing::onToolStateChanged);
    connect(service, &DStationService::sigToolLockSet, this, &DErrorProofing::onToolLockSet);
}

void DErrorProofing::setRequired(bool required)
{
    m_required = required;
    m_part->setLockAtBatchDone(required);
    update();
}

bool DErrorProofing::wantsLocked() const { return m_part->identifier(1).isEmpty() || m_part->isLockedAtBatchDone(); }

QString DErrorProofing::reason(bool locked) const
{
    if (!locked)
        return QStringLiteral("identifier %1").arg(m_part->identifier(1));
    if (m_part->identifier(1).isEmpty())
        return QStringLiteral("no identifier yet");
    return QStringLiteral("batch of program %1 done (%2 of %2), until the next identifier")
        .arg(m_part->activeProgram()).arg(m_part->batchSize());
}

void DErrorProofing::update()
{
    if (!m_required || m_sending || !m_service->isToolConnected())
        return;
    const bool locked = wantsLocked();
    if (m_applied == locked)
        return;
    if (!locked && m_heldByClient) {
        m_applied = false;
        m_part->recordEvent(QStringLiteral("unlock"), QStringLiteral("error-proofing releases the tool (%1); it stays "
                                                                      "locked by an Open Protocol 0042 until a 0043").arg(reason(false)));
        return;
    }
    m_sending = true;
    m_service->runToolCommand(QStringLiteral("setLock"), {{QStringLiteral("lock"), locked}},
                              [this, locked](bool ok, const QString& why) {
                                  m_sending = false;
                                  if (!ok) {
                                      m_part->recordEvent(locked ? QStringLiteral("lock-failed") : QStringLiteral("unlock-failed"),
                                                          QStringLiteral("cannot %1 the tool: %2; tried again when the link is back")
                                                              .arg(locked ? QStringLiteral("lock") : QStringLiteral("unlock"), why));
                                      return;
                                  }
                                  m_applied = locked;
                                  m_part->recordEvent(locked ? QStringLiteral("lock") : QStringLiteral("unlock"),
                                                      QStringLiteral("tool %1: %2").arg(locked ? QStringLiteral("locked")
                                                                                               : QStringLiteral("unlocked"),
                                                                                        reason(locked)));
                                  update();
                              },
                              c_requester);
}

// A tool back on its link may have forgotten its lock: put it on again.
void DErrorProofing::onToolStateChanged(bool connected)
{
    m_applied.reset();
    if (connected)
        update();
}

// A client's lock holds the tool; a client's unlock does not lift error-proofing's lock.
void DErrorProofing::onToolLockSet(bool locked, const QString& requester)
{
    if (requester == c_requester)
        return;
    m_heldByClient = locked;
    m_applied = locked;
    update();
}
