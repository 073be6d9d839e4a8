#ifndef D_WEB_SERVER_H
#define D_WEB_SERVER_H

#include "d_station_config.h"
#include "d_web_feed.h"

#include <QObject>
#include <QTimer>

#include <memory>
#include <thread>

namespace httplib {
class Server;
}

class DResultJournal;
class DWebApi;

// The station's web page and its JSON API (read-only): cpp-httplib serves them from threads of
// its own, each request reading the journal through a connection of its own, so that browsers
// never hold up the service's event loop. The loop only feeds DWebFeed.
class DWebServer : public QObject
{
    Q_OBJECT
public:
    // http-port, http-bind.
    static QList<DStationConfig::DKey> configKeys();

    DWebServer(const DStationConfig& config, DResultJournal* journal, QObject* parent = nullptr);
    ~DWebServer() override;

    DWebFeed* feed() { return &m_feed; }
    // Listens as configured (nothing with http-port 0); a port taken is said once and tried again every 10 s.
    void start();
    // Ends every stream and stops listening at once; the server's threads end by the destructor.
    void stop();

    // The pages' folder: web/ beside the program's bin/ (the build tree's and the package's).
    static QString staticFolder();

private:
    void listen();

    DWebFeed m_feed;
    QString m_journalPath;
    int m_port;
    QString m_bind;
    std::unique_ptr<DWebApi> m_api;
    std::unique_ptr<httplib::Server> m_server;
    std::thread m_thread;
    QTimer m_retry;
    bool m_failing = false;
};

#endif // D_WEB_SERVER_H
