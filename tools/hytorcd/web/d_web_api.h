#ifndef D_WEB_API_H
#define D_WEB_API_H

#include <QByteArray>
#include <QString>

#include <atomic>

namespace httplib {
class Server;
struct Request;
struct Response;
}

class DWebFeed;

// The JSON API under /api/ that the pages use and scripts can: the station's status, the results
// (keyset paging, filters, CSV and JSON-lines downloads that are what `hytorc results` prints),
// SPC per program and the event stream. Runs on the server's threads; each request opens its
// own read-only view of the journal. A bad parameter is 400 with {"error":"..."}.
class DWebApi
{
public:
    DWebApi(const QString& journalPath, DWebFeed* feed);

    void route(httplib::Server* server);

private:
    void status(const httplib::Request& request, httplib::Response& response);
    void results(const httplib::Request& request, httplib::Response& response);
    void download(const httplib::Request& request, httplib::Response& response, bool csv);
    void spc(const httplib::Request& request, httplib::Response& response);
    void events(const httplib::Request& request, httplib::Response& response);

    QString m_journalPath;
    DWebFeed* m_feed;
    std::atomic<int> m_streams{0};
};

#endif // D_WEB_API_H
