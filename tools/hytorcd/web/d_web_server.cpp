#include <httplib.h>

#include "d_web_server.h"

#include "d_message_handler.h"
#include "d_result_journal.h"
#include "d_web_api.h"

#include <QCoreApplication>
#include <QDir>
#include <QHostAddress>

namespace {

constexpr int c_retryMs = 10000;
// Event streams hold a thread each; the rest answer pages and the API.
constexpr size_t c_threads = 48;
const QString c_chartJs = QStringLiteral("/usr/share/javascript/chart.js");

bool isLoopback(const QString& host)
{
    return host == QLatin1String("localhost") || QHostAddress(host).isLoopback();
}

} // namespace

QList<DStationConfig::DKey> DWebServer::configKeys()
{
    return {
        {QStringLiteral("http-port"), QStringLiteral("8080"), QStringLiteral("a port, 0 to 65535"),
         DStationConfig::integer(0, 65535), QStringLiteral("The web page's TCP port; 0 switches it off.")},
        {QStringLiteral("http-bind"), QStringLiteral("127.0.0.1"), QStringLiteral("an address of this host, or any"),
         [](const QString& text) { return text == QLatin1String("any") || !QHostAddress(text).isNull() || text == QLatin1String("localhost"); },
         QStringLiteral("The address the web page listens on (any: every address).")},
    };
}

DWebServer::DWebServer(const DStationConfig& config, DResultJournal* journal, QObject* parent)
    : QObject(parent)
    , m_journalPath(journal->path())
    , m_port(config.intValue(QStringLiteral("http-port")))
    , m_bind(config.value(QStringLiteral("http-bind")))
{
    m_retry.setInterval(c_retryMs);
    m_retry.setSingleShot(true);
    connect(&m_retry, &QTimer::timeout, this, &DWebServer::listen);
}

DWebServer::~DWebServer()
{
    stop();
    if (m_thread.joinable())
        m_thread.join();
}

QString DWebServer::staticFolder()
{
    return QDir::cleanPath(QCoreApplication::applicationDirPath() + QStringLiteral("/../share/web"));
}

void DWebServer::start()
{
    if (m_port > 0)
        listen();
}

void DWebServer::stop()
{
    m_retry.stop();
    m_feed.close();
    if (m_server)
        m_server->stop();
}

void DWebServer::listen()
{
    auto server = std::make_unique<httplib::Server>();
    server->new_task_queue = [] { return new httplib::ThreadPool(c_threads); };
    m_api = std::make_unique<DWebApi>(m_journalPath, &m_feed);
    m_api->route(server.get());
    if (!server->set_mount_point("/", staticFolder().toStdString()) && !m_failing)
        DMessageHandler::say(QStringLiteral("web: the pages are not in %1: reinstall the package (the API still answers)")
                                 .arg(staticFolder()));
    if (!server->set_mount_point("/javascript/chart.js", c_chartJs.toStdString()) && !m_failing)
        DMessageHandler::say(QStringLiteral("web: Chart.js is not in %1: install libjs-chart.js (the SPC page draws no "
                                            "charts without it)").arg(c_chartJs));
    server->set_error_handler([](const httplib::Request& request, httplib::Response& response) {
        if (response.body.empty() && response.status == 404)
            response.set_content("{\"error\":\"no such page: " + request.path + "\"}\n", "application/json");
    });
    const QString host = m_bind == QLatin1String("any") ? QStringLiteral("::") : m_bind;
    if (!server->bind_to_port(host.toStdString(), m_port)) {
        if (!m_failing)
            DMessageHandler::say(QStringLiteral("web: cannot listen on %1 port %2 (taken by another program, or an address "
                                                "not on this host): trying again every %3 s")
                                     .arg(m_bind).arg(m_port).arg(c_retryMs / 1000));
        m_failing = true;
        m_retry.start();
        return;
    }
    m_failing = false;
    m_server = std::move(server);
    httplib::Server* running = m_server.get();
    m_thread = std::thread([running] { running->listen_after_bind(); });
    const QString url = QStringLiteral("http://%1:%2/").arg(host.contains(':') ? '[' + host + ']' : host).arg(m_port);
    DMessageHandler::say(isLoopback(host)
        ? QStringLiteral("web: %1").arg(url)
        : QStringLiteral("web: %1 is open beyond this machine: read-only and without a password, every host that "
                         "reaches it sees the station's results (--http-bind 127.0.0.1 keeps it local)").arg(url));
}
