// hytorcd's MQTT part against a real mosquitto on loopback, QoS 1 throughout:
// - live: results journaled one after the other, each published and acknowledged (per second);
// - backlog: 100 000 results journaled during an outage, sent once the broker is reachable;
// - latency: the simulator's report (written at once, no pacing) to a subscriber, through the
//   hytorcd program (median and p99 of 200 reports), with the journal on the disk as a
//   station's is (/0), and on /dev/shm (/1) to show what the disk's fsync adds.
// The journal of the first two lives on /dev/shm when there is one: their figures are MQTT's,
// not the disk's fsync.
#include "d_bench_spin.h"
#include "d_hytorc_process.h"
#include "d_mosquitto_broker.h"
#include "d_mqtt_link.h"
#include "d_mqtt_publisher.h"
#include "d_result_journal.h"
#include "d_result_record.h"
#include "d_simulated_tool.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTimer>

#include <mosquitto.h>

#include <algorithm>
#include <chrono>
#include <mutex>

namespace {

using DClock = std::chrono::steady_clock;

QString scratchFolder(bool memory = true)
{
    const bool shm = memory && QDir(QStringLiteral("/dev/shm")).exists();
    return (shm ? QStringLiteral("/dev/shm") : QDir::tempPath()) + QStringLiteral("/bench_mqtt-XXXXXX");
}

QVariantMap sampleRecord(int n)
{
    QVariantMap record;
    for (const QString& key : DResultRecord::eventKeys())
        record.insert(key, DResultRecord::isNumeric(key) ? QVariant(n) : QVariant(QStringLiteral("X%1").arg(n)));
    return record;
}

DMqttSettings brokerAt(quint16 port)
{
    DMqttSettings settings;
    settings.setUrl(QStringLiteral("mqtt://127.0.0.1:%1").arg(port));
    settings.topic = QStringLiteral("bench/B1");
    settings.clientId = QStringLiteral("bench-publisher");
    return settings;
}

void BM_LiveResultsAcknowledged(benchmark::State& state)
{
    QTemporaryDir dir(scratchFolder());
    DMosquittoBroker broker(dir.path());
    DResultJournal journal;
    QString error;
    if (!broker.start() || !journal.open(dir.filePath("r.db"), DResultJournal::CeWriter, &error))
        return state.SkipWithError("no broker or no journal");
    DMqttLink link(brokerAt(broker.port()));
    DMqttPublisher publisher(&journal, &link, QStringLiteral("bench/B1"));
    link.open();
    spinUntil([&] { return link.isConnected(); }, 10000);
    const int count = int(state.range(0));
    for (auto _ : state) {
        QElapsedTimer clock;
        clock.start();
        for (int i = 0; i < count; ++i) {
            journal.append(sampleRecord(i), QStringLiteral("B1"), QStringLiteral("S1"), &error);
            QCoreApplication::processEvents();
        }
        if (!spinUntil([&] { return publisher.acknowledgedId() == journal.lastId(); }, 60000))
            return state.SkipWithError("not every result was acknowledged");
        state.counters["results_per_s"] = count / (clock.nsecsElapsed() / 1e9);
    }
}

void BM_BacklogAfterOutage(benchmark::State& state)
{
    QTemporaryDir dir(scratchFolder());
    DMosquittoBroker broker(dir.path());
    DResultJournal journal;
    QString error;
    if (!journal.open(dir.filePath("r.db"), DResultJournal::CeWriter, &error))
        return state.SkipWithError("no journal");
    QElapsedTimer filling;
    filling.start();
    for (int i = 0; i < state.range(0); ++i)
        journal.append(sampleRecord(i), QStringLiteral("B1"), QStringLiteral("S1"), &error);
    state.counters["fill_s"] = filling.nsecsElapsed() / 1e9;
    if (!broker.start())
        return state.SkipWithError("no broker");
    for (auto _ : state) {
        QElapsedTimer clock;
        clock.start();
        DMqttLink link(brokerAt(broker.port()));
        DMqttPublisher publisher(&journal, &link, QStringLiteral("bench/B1"));
        link.open();
        if (!spinUntil([&] { return publisher.acknowledgedId() == journal.lastId(); }, 120000))
            return state.SkipWithError("the backlog was not acknowledged within 120 s");
        const double seconds = clock.nsecsElapsed() / 1e9;
        state.counters["backlog_s"] = seconds;
        state.counters["results_per_s"] = state.range(0) / seconds;
    }
}

// A plant's consumer: the time each result arrived, by id, taken on libmosquitto's own thread.
struct DSubscriber {
    static void onMessage(mosquitto*, void* self, const mosquitto_message* message)
    {
        const QByteArray payload(static_cast<const char*>(message->payload), message->payloadlen);
        const qint64 id = QJsonDocument::fromJson(payload).object().value("id").toVariant().toLongLong();
        auto* subscriber = static_cast<DSubscriber*>(self);
        std::lock_guard<std::mutex> lock(subscriber->mutex);
        subscriber->arrivals[id] = DClock::now();
    }
    explicit DSubscriber(quint16 port) : client((mosquitto_lib_init(), mosquitto_new("bench-subscriber", true, this)))
    {
        mosquitto_message_callback_set(client, onMessage);
        mosquitto_connect(client, "127.0.0.1", port, 20);
        mosquitto_subscribe(client, nullptr, "hytorc/B1/results", 1);
        mosquitto_loop_start(client);
    }
    ~DSubscriber()
    {
        mosquitto_disconnect(client);
        mosquitto_loop_stop(client, false);
        mosquitto_destroy(client);
    }
    bool arrived(qint64 id, DClock::time_point* at)
    {
        std::lock_guard<std::mutex> lock(mutex);
        const auto it = arrivals.find(id);
        return it != arrivals.end() ? (*at = it->second, true) : false;
    }
    mosquitto* client;
    std::mutex mutex;
    std::map<qint64, DClock::time_point> arrivals;
};

void BM_ReportToSubscriber(benchmark::State& state)
{
    QTemporaryDir dir(scratchFolder(state.range(0) == 1));
    DMosquittoBroker broker(dir.path());
    DSimulatedTool tool;
    if (!broker.start() || !tool.start({"--baud", "0"}))
        return state.SkipWithError("no broker or no simulator");
    DSubscriber subscriber(broker.port());
    DTimedHytorc daemon({"--device", tool.linkPath(), "--journal", dir.filePath("r.db"), "--station", "B1", "--mqtt",
                         QStringLiteral("mqtt://127.0.0.1:%1").arg(broker.port())},
                        QProcessEnvironment::systemEnvironment(), "hytorcd");
    if (!spinUntil([&] { return daemon.count("listening") > 0 && daemon.count("connected to the broker") > 0; }, 20000))
        return state.SkipWithError("hytorcd did not start");
    const int count = 200;
    for (auto _ : state) {
        std::vector<double> ms;
        for (qint64 id = 1; id <= count; ++id) {
            const DClock::time_point sent = DClock::now();
            tool.say("event");
            DClock::time_point at;
            if (!spinUntil([&] { return subscriber.arrived(id, &at); }, 5000))
                return state.SkipWithError("a result did not arrive");
            ms.push_back(std::chrono::duration<double, std::milli>(at - sent).count());
        }
        std::sort(ms.begin(), ms.end());
        state.counters["median_ms"] = ms.at(ms.size() / 2);
        state.counters["p99_ms"] = ms.at(std::min(ms.size() - 1, size_t(ms.size() * 0.99)));
        state.counters["max_ms"] = ms.back();
    }
}

} // namespace

BENCHMARK(BM_LiveResultsAcknowledged)->Arg(20000)->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(BM_BacklogAfterOutage)->Arg(100000)->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(BM_ReportToSubscriber)->Arg(0)->Arg(1)->Iterations(1)->Unit(benchmark::kMillisecond);
