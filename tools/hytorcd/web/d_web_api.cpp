#include <httplib.h>

#include "d_web_api.h"

#include "d_result_filter.h"
#include "d_result_journal.h"
#include "d_result_record.h"
#include "d_spc.h"
#include "d_web_feed.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <memory>

namespace {

constexpr qint64 c_defaultPage = 50;
constexpr qint64 c_maxPage = 1000;
constexpr qint64 c_downloadBatch = 5000;
constexpr int c_keepAliveMs = 15000;
constexpr int c_maxStreams = 32;
constexpr const char* c_json = "application/json";

const QHash<QString, DResultFilter::EnField> c_filters{
    {"since", DResultFilter::CeFrom},       {"until", DResultFilter::CeTo},         {"after", DResultFilter::CeAfter},
    {"before", DResultFilter::CeBefore},    {"program", DResultFilter::CeProgram}, {"status", DResultFilter::CeStatus},
    {"identifier", DResultFilter::CeIdentifier}, {"limit", DResultFilter::CeLimit}};

void fail(httplib::Response& response, int status, const QString& message)
{
    response.status = status;
    response.set_content(QJsonDocument(QJsonObject{{"error", message}}).toJson(QJsonDocument::Compact).toStdString() + '\n',
                         c_json);
}

// The request's parameters into `query`; only those in `allowed` (and the extra words in
// `flags`, which the caller reads itself) are taken. False with the 400 answered.
bool readQuery(const httplib::Request& request, httplib::Response& response, const QStringList& allowed,
               DResultJournal::DQuery* query)
{
    for (const auto& [name, value] : request.params) {
        const QString key = QString::fromStdString(name);
        QString what;
        if (!allowed.contains(key)) {
            fail(response, 400, QStringLiteral("unknown parameter \"%1\" (this path takes: %2)").arg(key, allowed.join(", ")));
            return false;
        }
        if (c_filters.contains(key) && !DResultFilter::set(c_filters.value(key), QString::fromStdString(value), query, &what)) {
            fail(response, 400, key + QLatin1Char(' ') + what);
            return false;
        }
    }
    return true;
}

// A view of the journal of this thread's own; false with the 503 answered.
bool openJournal(const QString& path, DResultJournal* journal, httplib::Response& response)
{
    QString error;
    if (journal->open(path, DResultJournal::CeReader, &error))
        return true;
    fail(response, 503, error);
    return false;
}

QByteArray quoted(const QString& text) { return QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact).mid(1).chopped(1); }

} // namespace

DWebApi::DWebApi(const QString& journalPath, DWebFeed* feed)
    : m_journalPath(journalPath)
    , m_feed(feed)
{
}

void DWebApi::route(httplib::Server* server)
{
    using namespace std::placeholders;
    server->Get("/api/status", std::bind(&DWebApi::status, this, _1, _2));
    server->Get("/api/results", std::bind(&DWebApi::results, this, _1, _2));
    server->Get("/api/results.csv", std::bind(&DWebApi::download, this, _1, _2, true));
    server->Get("/api/results.jsonl", std::bind(&DWebApi::download, this, _1, _2, false));
    server->Get("/api/spc", std::bind(&DWebApi::spc, this, _1, _2));
    server->Get("/api/events", std::bind(&DWebApi::events, this, _1, _2));
}

void DWebApi::status(const httplib::Request& request, httplib::Response& response)
{
    DResultJournal::DQuery query;
    if (readQuery(request, response, {}, &query))
        response.set_content(m_feed->status().toStdString() + '\n', c_json);
}

// A page of rows, oldest first after `after`, or newest first (order=newest) before `before`;
// "next" is what to pass for the following page, null after the last.
void DWebApi::results(const httplib::Request& request, httplib::Response& response)
{
    DResultJournal::DQuery query;
    query.limit = c_defaultPage;
    if (!readQuery(request, response, c_filters.keys() + QStringList{"order"}, &query))
        return;
    const std::string order = request.get_param_value("order");
    if (order != "" && order != "oldest" && order != "newest")
        return fail(response, 400, QStringLiteral("order takes oldest or newest, not \"%1\"").arg(QString::fromStdString(order)));
    if (query.limit > c_maxPage)
        return fail(response, 400, QStringLiteral("limit takes a number of rows (1 to %1)").arg(c_maxPage));
    query.newestFirst = order == "newest";
    DResultJournal journal;
    if (!openJournal(m_journalPath, &journal, response))
        return;
    QByteArray rows;
    qint64 count = 0;
    qint64 lastId = 0;
    QString error;
    const bool read = journal.forEachValues(query, [&](const QVariantList& row) {
        rows += (count++ ? "," : "") + DResultRecord::jsonLine(row, DResultRecord::journalKeys());
        lastId = row.first().toLongLong();
        return true;
    }, &error);
    if (!read)
        return fail(response, 503, error);
    QByteArray keys;
    for (const QString& key : DResultRecord::journalKeys())
        keys += (keys.isEmpty() ? "" : ",") + quoted(key);
    const QByteArray next = count == query.limit ? QByteArray::number(lastId) : QByteArray("null");
    response.set_content(("{\"keys\":[" + keys + "],\"rows\":[" + rows + "],\"next\":" + next + "}\n").toStdString(), c_json);
}

// Every row of the filters, oldest first, in batches: the bytes of `hytorc results` with the same filters.
void DWebApi::download(const httplib::Request& request, httplib::Response& response, bool csv)
{
    auto query = std::make_shared<DResultJournal::DQuery>();
    if (!readQuery(request, response, {"since", "until", "after", "program", "status", "identifier"}, query.get()))
        return;
    auto journal = std::make_shared<DResultJournal>();
    if (!openJournal(m_journalPath, journal.get(), response))
        return;
    query->limit = c_downloadBatch;
    response.set_header("Content-Disposition", csv ? "attachment; filename=results.csv" : "attachment; filename=results.jsonl");
    auto header = std::make_shared<bool>(csv);
    response.set_chunked_content_provider(csv ? "text/csv; charset=utf-8" : "application/x-ndjson",
                                          [journal, query, header, csv](size_t, httplib::DataSink& sink) {
        QByteArray out = *header ? DResultRecord::csvHeader(DResultRecord::journalKeys()) + '\n' : QByteArray();
        *header = false;
        qint64 count = 0;
        QString error;
        const bool read = journal->forEachValues(*query, [&](const QVariantList& row) {
            out += DResultRecord::exportLine(row, csv);
            query->sinceId = row.first().toLongLong();
            return ++count > 0;
        }, &error);
        if (!read || !sink.write(out.constData(), size_t(out.size())))
            return false;
        if (count < c_downloadBatch)
            sink.done();
        return true;
    });
}

void DWebApi::spc(const httplib::Request& request, httplib::Response& response)
{
    DResultJournal::DQuery query;
    if (!readQuery(request, response, {"program", "since", "until", "chart"}, &query))
        return;
    if (query.progId == 0)
        return fail(response, 400, QStringLiteral("program is required: a program id (1 to 999)"));
    DResultJournal journal;
    if (!openJournal(m_journalPath, &journal, response))
        return;
    QMap<int, DSpc> programs;
    QString error;
    if (!DSpc::fromJournal(journal, query, &programs, &error))
        return fail(response, 503, error);
    const bool charts = request.get_param_value("chart") == "1";
    response.set_content(programs.value(query.progId).json(charts).toStdString() + '\n', c_json);
}

// Server-Sent Events: the state first ("tool", "part", "links", ...), then each committed result as
// "result" with its id (a reconnecting browser's Last-Event-ID resumes after it), and state changes.
void DWebApi::events(const httplib::Request& request, httplib::Response& response)
{
    DResultJournal::DQuery query;
    if (!readQuery(request, response, {"after"}, &query))
        return;
    if (request.has_header("Last-Event-ID"))
        query.sinceId = QByteArray::fromStdString(request.get_header_value("Last-Event-ID")).toLongLong();
    if (++m_streams > c_maxStreams) {
        --m_streams;
        return fail(response, 503, QStringLiteral("too many event streams open (%1): close a page").arg(c_maxStreams));
    }
    auto journal = std::shared_ptr<DResultJournal>(new DResultJournal, [this](DResultJournal* journal) {
        delete journal;
        --m_streams;
    });
    if (!openJournal(m_journalPath, journal.get(), response))
        return;
    auto cursor = std::make_shared<DWebFeed::DCursor>();
    QByteArray first = m_feed->current(cursor.get());
    cursor->resultId = query.sinceId > 0 ? query.sinceId : m_feed->newestId();
    response.set_header("Cache-Control", "no-cache");
    response.set_chunked_content_provider("text/event-stream", [this, journal, cursor, first](size_t, httplib::DataSink& sink) mutable {
        QByteArray out;
        qint64 newest = 0;
        const bool open = m_feed->wait(cursor.get(), first.isEmpty() ? c_keepAliveMs : 0, &out, &newest);
        out.prepend(first);
        first.clear();
        DResultJournal::DQuery after;
        after.sinceId = cursor->resultId;
        after.limit = c_maxPage;
        QString error;
        const bool read = newest <= cursor->resultId || journal->forEachValues(after, [&](const QVariantList& row) {
            cursor->resultId = row.first().toLongLong();
            out += "id: " + QByteArray::number(cursor->resultId) + "\nevent: result\ndata: "
                + DResultRecord::jsonLine(row, DResultRecord::journalKeys()) + "\n\n";
            return true;
        }, &error);
        if (out.isEmpty())
            out = ": keep-alive\n\n";
        if (!read || !sink.write(out.constData(), size_t(out.size())))
            return false;
        if (!open)
            sink.done();
        return true;
    });
}
