// hytorc-collector (the program) between a real mosquitto and a real PostgreSQL 15 (fsync on):
// - collect: 100 stations' worth of synthetic publishers offer HYTORC_COLLECTOR_RATE results/s
//   (default 12 000) for HYTORC_BENCH_SECONDS (default 60); results/s committed, from the first
//   publish to the last row committed; beside them one station publishes every 20 ms, and the
//   time from its publish to its row being visible in the database (polled every 5 ms) gives
//   the latency's median and p99;
// - gap: a station journal of 100 001 results of which the collector sees only the last: the
//   time until the 100 000 before it are committed, asked for and sent again by hytorcd's replay.
#include "d_bench_spin.h"
#include "d_hytorc_process.h"
#include "d_mosquitto_broker.h"
#include "d_mqtt_link.h"
#include "d_mqtt_replayer.h"
#include "d_postgres_connection.h"
#include "d_postgres_server.h"
#include "d_result_journal.h"
#include "d_result_record.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QTimer>

#include <libpq-fe.h>
#include <mosquitto.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

namespace {

using DClock = std::chrono::steady_clock;
constexpr int c_stations = 100;
constexpr int c_publishers = 4;
const QByteArray c_brokerLines = "max_queued_messages 0\nmax_inflight_messages 0\n";

int setting(const char* name, int fallback)
{
    const int value = qEnvironmentVariableIntValue(name);
    return value > 0 ? value : fallback;
}

QByteArray payload(const QString& station, qint64 id)
{
    QVariantMap row{{"id", id}, {"receivedAt", QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs)}, {"station", station},
                    {"toolSerial", "HYT24A0137"}};
    for (const QString& key : DResultRecord::eventKeys())
        row.insert(key, DResultRecord::isNumeric(key) ? QVariant(id % 1000) : QVariant(QStringLiteral("V%1").arg(id % 97)));
    return DResultRecord::jsonLine(row, DResultRecord::journalKeys());
}

qint64 scalar(DPostgresConnection* db, const QByteArray& sql)
{
    QString error;
    const auto result = db->exec(sql, {}, &error);
    return result && PQntuples(result.get()) == 1 ? QByteArray(PQgetvalue(result.get(), 0, 0)).toLongLong() : -1;
}

// A libmosquitto client on a thread of its own publishing QoS 1; it leaves once the broker has
// acknowledged everything (a disconnect would drop what its queue still holds).
struct DPublisher {
    explicit DPublisher(quint16 port, const QByteArray& id) : client(mosquitto_new(id.constData(), true, this))
    {
        mosquitto_int_option(client, MOSQ_OPT_SEND_MAXIMUM, 1000);
        mosquitto_publish_callback_set(client, [](mosquitto*, void* self, int) { ++static_cast<DPublisher*>(self)->acked; });
        mosquitto_connect(client, "127.0.0.1", port, 60);
        mosquitto_loop_start(client);
    }
    ~DPublisher()
    {
        for (int waited = 0; acked < published && waited < 300000; waited += 10)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        mosquitto_disconnect(client);
        mosquitto_loop_stop(client, false);
        mosquitto_destroy(client);
    }
    void publish(const QByteArray& topic, const QByteArray& message)
    {
        mosquitto_publish(client, nullptr, topic.constData(), message.size(), message.constData(), 1, false);
        ++published;
    }
    mosquitto* client;
    qint64 published = 0;
    std::atomic<qint64> acked{0};
};

struct DCollectorRun {
    DCollectorRun(const DPostgresServer& db, const QString& database, quint16 broker, int graceSeconds)
        : process({"--mqtt", QStringLiteral("mqtt://127.0.0.1:%1").arg(broker), "--postgres", db.connInfo(database),
                   "--mqtt-client-id", "bench-" + database, "--grace", QString::number(graceSeconds)},
                  QProcessEnvironment::systemEnvironment(), "hytorc-collector")
    {
    }
    bool ready() { return spinUntil([this] { return process.count("mqtt: connected") > 0; }, 20000); }
    DTimedHytorc process;
};

// The load: c_publishers threads, each for its share of the stations, offering `rate` results/s in all.
qint64 offerLoad(quint16 port, int rate, int seconds)
{
    std::atomic<qint64> sent{0};
    std::vector<std::thread> threads;
    for (int p = 0; p < c_publishers; ++p) {
        threads.emplace_back([&, p] {
            DPublisher publisher(port, "bench-load-" + QByteArray::number(p));
            const int stations = c_stations / c_publishers;
            const double perMs = double(rate) / c_publishers / 1000.0;
            const auto start = DClock::now();
            qint64 mine = 0;
            for (auto now = start; now - start < std::chrono::seconds(seconds); now = DClock::now()) {
                const double due = std::chrono::duration<double, std::milli>(now - start).count() * perMs;
                for (; mine < qint64(due); ++mine) {
                    const QString station = QStringLiteral("S%1").arg(p * stations + mine % stations, 3, 10, QLatin1Char('0'));
                    publisher.publish("hytorc/" + station.toUtf8() + "/results", payload(station, mine / stations + 1));
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
            sent += mine;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    return sent;
}

void BM_Collect(benchmark::State& state)
{
    DPostgresServer db(true);
    QTemporaryDir dir;
    DMosquittoBroker broker(dir.path(), c_brokerLines);
    if (!DPostgresServer::available() || !db.initialise() || !db.start() || !broker.start())
        return state.SkipWithError("no PostgreSQL 15 or no broker");
    const int rate = setting("HYTORC_COLLECTOR_RATE", 12000);
    const int seconds = setting("HYTORC_BENCH_SECONDS", 60);
    for (auto _ : state) {
        DCollectorRun collector(db, "postgres", broker.port(), 5);
        DPostgresConnection poll;
        QString error;
        if (!collector.ready() || !poll.open(db.connInfo(), QString(), &error))
            return state.SkipWithError("the collector did not start");
        // The latency station, published from a thread; its rows looked for every 5 ms here.
        std::mutex mutex;
        std::vector<DClock::time_point> published;
        std::atomic<bool> loaded{false};
        std::thread latency([&] {
            DPublisher publisher(broker.port(), "bench-latency");
            for (qint64 id = 1; !loaded; ++id) {
                {
                    std::lock_guard<std::mutex> lock(mutex);
                    published.push_back(DClock::now());
                }
                publisher.publish("hytorc/L/results", payload(QStringLiteral("L"), id));
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
        });
        const auto start = DClock::now();
        qint64 offered = 0;
        std::thread load([&] { offered = offerLoad(broker.port(), rate, seconds); loaded = true; });
        std::vector<double> latencies;
        qint64 seen = 0;
        while (!loaded) {
            const qint64 last = scalar(&poll, "SELECT coalesce(max(id), 0) FROM results WHERE station = 'L'");
            const auto now = DClock::now();
            std::lock_guard<std::mutex> lock(mutex);
            for (; seen < last && seen < qint64(published.size()); ++seen)
                latencies.push_back(std::chrono::duration<double, std::milli>(now - published.at(size_t(seen))).count());
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        load.join();
        latency.join();
        const qint64 latencyRows = qint64(published.size());
        if (!spinUntil([&] { return scalar(&poll, "SELECT count(*) FROM results") >= offered + latencyRows; }, 300000))
            return state.SkipWithError("not every result was committed within 300 s");
        const double total = std::chrono::duration<double>(DClock::now() - start).count();
        std::sort(latencies.begin(), latencies.end());
        state.counters["offered_per_s"] = offered / double(seconds);
        state.counters["committed_per_s"] = offered / total;
        state.counters["latency_median_ms"] = latencies.empty() ? -1 : latencies.at(latencies.size() / 2);
        state.counters["latency_p99_ms"] = latencies.empty() ? -1 : latencies.at(latencies.size() * 99 / 100);
    }
}

void BM_GapFilledByReplay(benchmark::State& state)
{
    const bool shm = QDir(QStringLiteral("/dev/shm")).exists();
    QTemporaryDir dir((shm ? QStringLiteral("/dev/shm") : QDir::tempPath()) + QStringLiteral("/bench_collector-XXXXXX"));
    DPostgresServer db(true);
    DMosquittoBroker broker(dir.path());
    DResultJournal journal;
    QString error;
    if (!DPostgresServer::available() || !db.initialise() || !db.start() || !broker.start()
        || !journal.open(dir.filePath("r.db"), DResultJournal::CeWriter, &error))
        return state.SkipWithError("no PostgreSQL 15, no broker or no journal");
    const qint64 gap = state.range(0);
    QVariantMap record;
    for (const QString& key : DResultRecord::eventKeys())
        record.insert(key, DResultRecord::isNumeric(key) ? QVariant(7) : QVariant(QStringLiteral("V")));
    for (qint64 i = 0; i <= gap; ++i)
        journal.append(record, QStringLiteral("G1"), QStringLiteral("HYT24A0137"), &error);
    DMqttSettings settings;
    settings.setUrl(QStringLiteral("mqtt://127.0.0.1:%1").arg(broker.port()));
    settings.clientId = QStringLiteral("bench-station");
    DMqttLink link(settings);
    DMqttReplayer replayer(&journal, &link, QStringLiteral("hytorc/G1"));
    link.open();
    for (auto _ : state) {
        DCollectorRun collector(db, "postgres", broker.port(), 1);
        DPostgresConnection poll;
        if (!collector.ready() || !spinUntil([&] { return link.isConnected(); }, 10000) || !poll.open(db.connInfo(), QString(), &error))
            return state.SkipWithError("no collector or no station link");
        QElapsedTimer clock;
        clock.start();
        link.publish("hytorc/G1/results", DResultRecord::jsonLine(journal.row(gap + 1), DResultRecord::journalKeys()), false);
        if (!spinUntil([&] { return scalar(&poll, "SELECT count(*) FROM results") == gap + 1; }, 120000))
            return state.SkipWithError("the gap was not filled within 120 s");
        state.counters["gap_fill_s"] = clock.nsecsElapsed() / 1e9;
        state.counters["results_per_s"] = gap / (clock.nsecsElapsed() / 1e9);
    }
}

} // namespace

BENCHMARK(BM_Collect)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK(BM_GapFilledByReplay)->Arg(100000)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
