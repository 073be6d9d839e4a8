// hytorcd's web part as browsers use it, hytorcd a real process:
// - /api/results' first page (newest first, and oldest first) and /api/spc of a program that has
//   every row (and of its last day, 28 800 rows), over a journal of a million rows (goal: < 200 ms each).
// - 20 event streams (/api/events) while the simulator sends reports at the link's capacity: the
//   time from a result's commit (its receivedAt) to its event on each stream (goal: p99 <= 50 ms).
// - The report's way into the journal, one at a time on an unpaced link, with 0 and 20 streams: the
//   event loop that acknowledges the report's frame also commits it, so what the streams add to
//   this time is what they add to the acknowledgement (goal: <= 5 ms).
// HYTORC_BENCH_SECONDS sets the streaming run (default 20).
#include "d_hytorc_process.h"
#include "d_simulated_tool.h"

#include <benchmark/benchmark.h>

#include <QDateTime>
#include <QJsonArray>
#include <QDir>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>

#include <algorithm>
#include <cmath>
#include <memory>

#include <ctime>

namespace {

constexpr int c_rows = 1000000;
constexpr int c_streams = 20;
constexpr int c_rounds = 300;
// The rows are 3 s apart from 2025-11-23T08:00:00Z: the last day of them is 28 800 rows.
constexpr qint64 c_firstMs = 1763884800000;
const QByteArray c_lastDay = QDateTime::fromMSecsSinceEpoch(c_firstMs + (c_rows - 28800) * qint64(3000), Qt::UTC)
                                 .toString(Qt::ISODate).toLatin1();

double wallMs()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return double(now.tv_sec) * 1e3 + now.tv_nsec / 1e6;
}

double percentile(std::vector<double> values, double share)
{
    if (values.empty())
        return -1;
    std::sort(values.begin(), values.end());
    return values.at(std::min(values.size() - 1, size_t(share * double(values.size()))));
}

quint16 freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost);
    return probe.serverPort();
}

// A million rows in one statement, every one of program 1 (the SPC's worst case), a few ft·lb.
bool fill(const QString& path)
{
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("fill"));
    db.setDatabaseName(path);
    bool ok = db.open();
    QSqlQuery query(db);
    ok = ok && query.exec(QStringLiteral(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < %1)"
        " INSERT INTO results (receivedAt, station, toolSerial, date, time, duration, jobId, profileName, mode,"
        " snugTorqueAngle, torqueUnit, direction, status, convertedTorque, angleUnit, progId, eventCountNo)"
        " SELECT %2 + i * 3000, 'B1', 'HYT24A0137', '2026-11-23', '08:00:00', 1848, i, 'P1', 'TQ', '12.000',"
        " CASE WHEN i % 10 = 0 THEN 'FTLB' ELSE 'N.m' END, 'CW', CASE WHEN i % 50 = 0 THEN 'FAILED' ELSE 'PASSED' END,"
        " 16000 + abs(random() % 500), 'DEG', 1, i FROM n").arg(c_rows).arg(c_firstMs));
    query.clear();
    db.close();
    db = QSqlDatabase();
    QSqlDatabase::removeDatabase(QStringLiteral("fill"));
    return ok;
}

// One GET over HTTP/1.0 (the server closes after the answer); the body, empty on failure.
QByteArray get(quint16 port, const QByteArray& path)
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    if (!socket.waitForConnected(5000))
        return {};
    socket.write("GET " + path + " HTTP/1.0\r\n\r\n");
    QByteArray answer;
    while (socket.state() == QAbstractSocket::ConnectedState && socket.waitForReadyRead(30000))
        answer += socket.readAll();
    answer += socket.readAll();
    return answer.mid(answer.indexOf("\r\n\r\n") + 4);
}

// hytorcd with its web part on a free port; over the simulator of `simulatorArguments`.
struct DStation {
    DStation(const QStringList& simulatorArguments, bool million)
        : port(freePort())
    {
        const QString journal = dir.filePath(QStringLiteral("r.db"));
        if (!tool.start(simulatorArguments))
            return;
        daemon = std::make_unique<DTimedHytorc>(
            QStringList{"--device", tool.linkPath(), "--journal", journal, "--station", "B1", "--op-port", "0",
                        "--http-port", QString::number(port)},
            QProcessEnvironment::systemEnvironment(), "hytorcd");
        ready = QTest::qWaitFor([this] { return daemon->count("listening") > 0; }, 20000) && (!million || fill(journal));
    }

    QTemporaryDir dir;
    DSimulatedTool tool;
    std::unique_ptr<DTimedHytorc> daemon;
    quint16 port;
    bool ready = false;
};

// One browser's event stream: each result's commit-to-arrival time, and when each id arrived.
class DStream
{
public:
    explicit DStream(quint16 port)
    {
        QObject::connect(&m_socket, &QTcpSocket::readyRead, [this] { read(); });
        m_socket.connectToHost(QHostAddress::LocalHost, port);
        m_socket.write("GET /api/events HTTP/1.1\r\nHost: 127.0.0.1\r\nAccept: text/event-stream\r\n\r\n");
    }

    std::vector<double> latenciesMs;
    QHash<qint64, double> arrivals;  // wall ms by id
    bool open = false;

private:
    void read()
    {
        const double now = wallMs();
        m_buffer += m_socket.readAll();
        open = true;
        for (int start = m_buffer.indexOf("event: result\ndata: "); start >= 0; start = m_buffer.indexOf("event: result\ndata: ")) {
            const int end = m_buffer.indexOf('\n', start + 20);
            if (end < 0)
                break;
            const QJsonObject row = QJsonDocument::fromJson(m_buffer.mid(start + 20, end - start - 20)).object();
            const double committed = QDateTime::fromString(row.value("receivedAt").toString(), Qt::ISODateWithMs).toMSecsSinceEpoch();
            latenciesMs.push_back(now - committed);
            arrivals.insert(qint64(row.value("id").toDouble()), now);
            m_buffer.remove(0, end);
        }
    }

    QTcpSocket m_socket;
    QByteArray m_buffer;
};

std::vector<std::unique_ptr<DStream>> openStreams(quint16 port, int count)
{
    std::vector<std::unique_ptr<DStream>> streams;
    for (int i = 0; i < count; ++i)
        streams.push_back(std::make_unique<DStream>(port));
    (void)QTest::qWaitFor([&] { return std::all_of(streams.cbegin(), streams.cend(), [](const auto& s) { return s->open; }); }, 5000);
    return streams;
}

void BM_ApiOverAMillionRows(benchmark::State& state)
{
    const QList<QPair<std::string, QByteArray>> paths{{"results_newest", "/api/results?order=newest"},
                                                      {"results_oldest", "/api/results"},
                                                      {"spc", "/api/spc?program=1"},
                                                      {"spc_last_day", "/api/spc?program=1&since=" + c_lastDay}};
    DStation station({"--event-period", "0"}, true);
    if (!station.ready) {
        state.SkipWithError("hytorcd, the simulator or the million rows could not be made");
        return;
    }
    for (auto _ : state) {
        for (const auto& [name, path] : paths) {
            std::vector<double> ms;
            for (int i = 0; i < 5; ++i) {
                const double start = wallMs();
                if (!get(station.port, path).startsWith('{')) {
                    state.SkipWithError("no JSON answer");
                    return;
                }
                ms.push_back(wallMs() - start);
            }
            state.counters[name + "_median_ms"] = percentile(ms, 0.5);
            state.counters[name + "_max_ms"] = percentile(ms, 1);
        }
    }
}

void BM_EventsAtLinkCapacity(benchmark::State& state)
{
    const int seconds = qEnvironmentVariableIntValue("HYTORC_BENCH_SECONDS") > 0
        ? qEnvironmentVariableIntValue("HYTORC_BENCH_SECONDS") : 20;
    DStation station({"--event-period", "1"}, false);
    auto streams = openStreams(station.port, c_streams);
    if (!station.ready || !streams.back()->open) {
        state.SkipWithError("hytorcd, the simulator or the streams could not start");
        return;
    }
    for (auto _ : state)
        QTest::qWait(seconds * 1000);
    std::vector<double> all;
    for (const auto& stream : streams)
        all.insert(all.end(), stream->latenciesMs.cbegin(), stream->latenciesMs.cend());
    state.counters["events"] = double(all.size());
    state.counters["results_per_s"] = double(streams.front()->latenciesMs.size()) / seconds;
    state.counters["median_ms"] = percentile(all, 0.5);
    state.counters["p99_ms"] = percentile(all, 0.99);
    state.counters["max_ms"] = percentile(all, 1);
}

// The report told to the simulator, to its commit (receivedAt, whole ms) and to its events.
void BM_ReportToCommit(benchmark::State& state)
{
    const int clients = int(state.range(0));
    DStation station({"--baud", "0"}, false);
    auto streams = openStreams(station.port, clients);
    if (!station.ready || (clients && !streams.back()->open)) {
        state.SkipWithError("hytorcd, the simulator or the streams could not start");
        return;
    }
    std::vector<double> commitMs;
    std::vector<double> eventMs;
    for (auto _ : state) {
        for (int round = 1; round <= c_rounds; ++round) {
            // receivedAt is in whole milliseconds: the time told is too, so that no delay reads below 0.
            const double told = std::floor(wallMs());
            station.tool.say("event");
            QByteArray row;
            (void)QTest::qWaitFor([&] { return (row = get(station.port, "/api/results?order=newest&limit=1")).contains("\"id\":" + QByteArray::number(round) + ','); }, 5000);
            const QJsonObject result = QJsonDocument::fromJson(row).object().value("rows").toArray().first().toObject();
            commitMs.push_back(QDateTime::fromString(result.value("receivedAt").toString(), Qt::ISODateWithMs).toMSecsSinceEpoch() - told);
            if (clients && QTest::qWaitFor([&] { return streams.back()->arrivals.contains(round); }, 5000))
                eventMs.push_back(streams.back()->arrivals.value(round) - told);
        }
    }
    state.counters["commit_median_ms"] = percentile(commitMs, 0.5);
    state.counters["commit_p99_ms"] = percentile(commitMs, 0.99);
    if (clients) {
        state.counters["event_median_ms"] = percentile(eventMs, 0.5);
        state.counters["event_p99_ms"] = percentile(eventMs, 0.99);
    }
}

} // namespace

BENCHMARK(BM_ApiOverAMillionRows)->Unit(benchmark::kSecond)->Iterations(1);
BENCHMARK(BM_EventsAtLinkCapacity)->Unit(benchmark::kSecond)->Iterations(1);
BENCHMARK(BM_ReportToCommit)->Arg(0)->Arg(c_streams)->Unit(benchmark::kSecond)->Iterations(1);
