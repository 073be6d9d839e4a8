#ifndef D_ERROR_PROOFING_H
#define D_ERROR_PROOFING_H

#include "d_station_config.h"

#include <QObject>

#include <optional>

class DStationPart;
class DStationService;

// --require-identifier: the tool is locked on its wire while no identifier is current and once
// the active program's batch is done, until the next identifier. A lock a client asked for
// (Open Protocol 0042) is stronger: error-proofing never lifts it, and a client's unlock does not
// lift error-proofing's. Each lock and unlock is one line and one row of the journal's events.
class DErrorProofing : public QObject
{
    Q_OBJECT
public:
    // require-identifier.
    static QList<DStationConfig::DKey> configKeys();
    static const QString c_requester;

    DErrorProofing(DStationPart* part, DStationService* service, QObject* parent = nullptr);

    // Off: the tool's lock is left to the clients.
    void setRequired(bool required);

private:
    bool wantsLocked() const;
    QString reason(bool locked) const;
    void update();
    void onToolStateChanged(bool connected);
    void onToolLockSet(bool locked, const QString& requester);

    DStationPart* m_part;
    DStationService* m_service;
    bool m_required = false;
    bool m_sending = false;
    bool m_heldByClient = false;
    std::optional<bool> m_applied;  // what error-proofing last put on the tool; unknown after a reconnection
};

#endif // D_ERROR_PROOFING_H
