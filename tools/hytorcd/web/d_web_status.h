#ifndef D_WEB_STATUS_H
#define D_WEB_STATUS_H

#include <QObject>
#include <QTimer>

class DMqttReporter;
class DOpServer;
class DResultJournal;
class DStationPart;
class DStationService;
class DWebFeed;

// The station's state as the web page shows it, gathered on the event loop from the parts that
// hold it (the tool's service, the part, the Open Protocol server, MQTT) and handed to the feed
// as JSON whenever it changes: "station", "tool", "part" and "links".
class DWebStatus : public QObject
{
    Q_OBJECT
public:
    DWebStatus(DWebFeed* feed, DStationService* service, DStationPart* part, DResultJournal* journal,
               QObject* parent = nullptr);
    // The parts that may be absent (Open Protocol off, no broker): null when they are.
    void setLinks(const DOpServer* opServer, const DMqttReporter* mqtt);

private:
    void onChanged();
    void onEventRecorded(const QString& kind, const QString& text);
    void onToolLockSet(bool locked, const QString& requester);
    QByteArray toolJson() const;
    QByteArray partJson() const;
    QByteArray linksJson() const;

    DWebFeed* m_feed;
    DStationService* m_service;
    DStationPart* m_part;
    const DOpServer* m_opServer = nullptr;
    const DMqttReporter* m_mqtt = nullptr;
    QString m_lockReason;  // the last lock the journal recorded, until an unlock
    bool m_clientLocked = false;  // a line controller's setLock (Open Protocol 0042), which outranks the others
    QTimer m_poll;         // the Open Protocol clients come and go without a signal
};

#endif // D_WEB_STATUS_H
