// hytorcd's Open Protocol server, as a real process over the simulator, with clients on
// 127.0.0.1 that subscribe to results and acknowledge each at once.
// - Latency: from the tool's report (the simulator told "event", unpaced: --baud 0) to the
//   0061 on each client's socket, the journal's commit and fsync in between; 1 and 5 clients,
//   and the same with the journal on tmpfs, to tell the disk's share.
// - CPU: hytorcd's user + system time (/proc/PID/stat) with 5 clients (and with none, for
//   comparison) while the simulator sends reports at the link's capacity (115200 baud).
//   HYTORC_BENCH_SECONDS shortens each run (default 60).
// - Under a flood: one client pipelines 0064 requests (reading its replies) for 30 s (or
//   HYTORC_BENCH_SECONDS); meanwhile a report's way to a subscriber's 0061 (its commit in
//   between) and another client's 9999 answer are timed, and compared with the same without the flood.
#include "d_hytorc_process.h"
#include "d_op_message.h"
#include "d_simulated_tool.h"

#include <benchmark/benchmark.h>

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int c_latencyRounds = 300;

QByteArray msg(int mid) { return DOpMessage(mid, QByteArray()).bytes(); }

void spin(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
}

bool spinUntil(const std::function<bool()>& done, int ms)
{
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
    return done();
}

// One subscriber: every 0061 is timed on arrival and acknowledged at once.
class DSubscriber
{
public:
    DSubscriber(quint16 port, const QElapsedTimer* clock)
    {
        QObject::connect(&m_socket, &QTcpSocket::readyRead, [this, clock] {
            m_buffer += m_socket.readAll();
            int offset = 0;
            DOpMessage message;
            QString error;
            while (DOpMessage::read(m_buffer, &offset, &message, &error) == DOpMessage::CeRead) {
                if (message.mid() == 61) {
                    arrivals << clock->nsecsElapsed();
                    m_socket.write(msg(62));
                } else if (message.mid() == 5) {
                    subscribed = true;
                }
            }
            m_buffer.remove(0, offset);
        });
        m_socket.connectToHost(QHostAddress::LocalHost, port);
        m_socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
        m_socket.write(msg(1) + msg(60));
    }

    QList<qint64> arrivals;
    bool subscribed = false;

private:
    QTcpSocket m_socket;
    QByteArray m_buffer;
};

// hytorcd over the simulator, with `clients` subscribers; the journal in `folder`.
struct DStation {
    DStation(const QStringList& simulatorArguments, int clients, const QString& folder = QDir::tempPath())
        : dir(folder + QStringLiteral("/bench-op-XXXXXX"))
    {
        QTcpServer probe;
        probe.listen(QHostAddress::LocalHost);
        port = probe.serverPort();
        probe.close();
        if (!tool.start(simulatorArguments))
            return;
        daemon = std::make_unique<DTimedHytorc>(
            QStringList{"--device", tool.linkPath(), "--journal", dir.filePath("r.db"), "--station", "B1", "--op-port",
                        QString::number(port)},
            QProcessEnvironment::systemEnvironment(), "hytorcd");
        if (!spinUntil([this] { return daemon->count("listening") > 0; }, 20000))
            return;
        clock.start();
        for (int i = 0; i < clients; ++i)
            subscribers.push_back(std::make_unique<DSubscriber>(port, &clock));
        ready = spinUntil([this] {
            return std::all_of(subscribers.cbegin(), subscribers.cend(), [](const auto& s) { return s->subscribed; });
        }, 5000);
    }
    int received(int client) const { return subscribers.at(size_t(client))->arrivals.size(); }
    // hytorcd's user + system time so far, in seconds.
    double cpuSeconds() const
    {
        QFile stat(QStringLiteral("/proc/%1/stat").arg(daemon->process.processId()));
        if (!stat.open(QIODevice::ReadOnly))
            return 0;
        const QList<QByteArray> fields = stat.readAll().split(')').last().split(' ');
        // After the name: state is field 3, utime 14 and stime 15 of the whole line.
        return (fields.value(12).toLongLong() + fields.value(13).toLongLong()) / double(sysconf(_SC_CLK_TCK));
    }

    quint16 port = 0;
    QTemporaryDir dir;
    DSimulatedTool tool;
    std::unique_ptr<DTimedHytorc> daemon;
    QElapsedTimer clock;
    std::vector<std::unique_ptr<DSubscriber>> subscribers;
    bool ready = false;
};

double percentile(std::vector<double> values, double share)
{
    std::sort(values.begin(), values.end());
    return values.at(std::min(values.size() - 1, size_t(share * double(values.size()))));
}

void BM_ReportTo0061(benchmark::State& state)
{
    const int clients = int(state.range(0));
    const bool onDisk = state.range(1) != 0;
    state.SetLabel(onDisk ? "journal on disk (fsync)" : "journal on tmpfs (no real fsync)");
    DStation station({"--baud", "0"}, clients, onDisk ? QDir::tempPath() : QStringLiteral("/dev/shm"));
    if (!station.ready) {
        state.SkipWithError("hytorcd, the simulator or the clients could not start");
        return;
    }
    std::vector<double> latenciesMs;
    for (auto _ : state) {
        for (int round = 0; round < c_latencyRounds; ++round) {
            const qint64 sentAt = station.clock.nsecsElapsed();
            station.tool.say("event");
            const bool all = spinUntil([&] {
                for (int c = 0; c < clients; ++c) {
                    if (station.received(c) <= round)
                        return false;
                }
                return true;
            }, 5000);
            if (!all) {
                state.SkipWithError("a 0061 did not come");
                return;
            }
            for (const auto& subscriber : station.subscribers)
                latenciesMs.push_back((subscriber->arrivals.at(round) - sentAt) / 1e6);
        }
    }
    state.counters["samples"] = double(latenciesMs.size());
    state.counters["median_ms"] = percentile(latenciesMs, 0.5);
    state.counters["p99_ms"] = percentile(latenciesMs, 0.99);
    state.counters["max_ms"] = *std::max_element(latenciesMs.cbegin(), latenciesMs.cend());
}

void BM_CpuAtLinkCapacity(benchmark::State& state)
{
    const int seconds = qEnvironmentVariableIntValue("HYTORC_BENCH_SECONDS") > 0
        ? qEnvironmentVariableIntValue("HYTORC_BENCH_SECONDS") : 60;
    const int clients = int(state.range(0));
    // A period of 1 ms: the simulator tops its queue up whenever the line has taken it.
    DStation station({"--event-period", "1"}, clients);
    if (!station.ready) {
        state.SkipWithError("hytorcd, the simulator or the clients could not start");
        return;
    }
    for (auto _ : state) {
        spin(1000);  // the stream under way
        const int before = clients ? station.received(0) : 0;
        const double cpuBefore = station.cpuSeconds();
        QElapsedTimer wall;
        wall.start();
        spin(seconds * 1000);
        const double wallSeconds = wall.nsecsElapsed() / 1e9;
        const double cpu = station.cpuSeconds() - cpuBefore;
        state.SetIterationTime(wallSeconds);
        state.counters["hytorcd_cpu_pct"] = 100.0 * cpu / wallSeconds;
        if (clients == 0)
            continue;
        int fewest = station.received(0);
        int most = fewest;
        for (int c = 1; c < clients; ++c) {
            fewest = std::min(fewest, station.received(c));
            most = std::max(most, station.received(c));
        }
        state.counters["results_per_s"] = (station.received(0) - before) / wallSeconds;
        state.counters["0061_spread"] = most - fewest;  // between the clients at the end
    }
}

// A client that keeps a pipeline of 0064 requests full and throws its replies away, on a
// thread of its own with non-blocking sockets: the flood never slows the clients that time it.
class DFlooder
{
public:
    explicit DFlooder(quint16 port)
        : m_thread([this, port] { run(port); })
    {
    }
    ~DFlooder()
    {
        m_stop = true;
        m_thread.join();
    }
    // Reply bytes read so far; it stops growing when the flooder was closed.
    qint64 replyBytes() const { return m_replyBytes; }

private:
    void run(quint16 port)
    {
        const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0)
            flood(fd);
        ::close(fd);
    }

    void flood(int fd)
    {
        const QByteArray start = msg(1);
        ::send(fd, start.constData(), size_t(start.size()), MSG_NOSIGNAL);
        const QByteArray requests = DOpMessage(64, "0000000000").bytes().repeated(100);
        char replies[65536];
        qint64 offset = 0;
        while (!m_stop) {
            const ssize_t sent = ::send(fd, requests.constData() + offset, size_t(requests.size() - offset),
                                        MSG_DONTWAIT | MSG_NOSIGNAL);
            const bool sendFailed = sent < 0 && errno != EAGAIN;
            const ssize_t read = ::recv(fd, replies, sizeof replies, MSG_DONTWAIT);
            if (read == 0 || sendFailed || (read < 0 && errno != EAGAIN))
                return;
            offset = sent > 0 ? (offset + sent) % requests.size() : offset;
            m_replyBytes += std::max<ssize_t>(read, 0);
            if (sent <= 0 && read < 0) {
                pollfd wanted{fd, POLLIN | POLLOUT, 0};
                ::poll(&wanted, 1, 10);
            }
        }
    }

    std::atomic<bool> m_stop{false};
    std::atomic<qint64> m_replyBytes{0};
    std::thread m_thread;
};

// Another client's 9999, answered: milliseconds from the request to its mirror.
class DProber
{
public:
    explicit DProber(quint16 port)
    {
        QObject::connect(&m_socket, &QTcpSocket::readyRead, [this] {
            m_buffer += m_socket.readAll();
            while (m_buffer.contains(msg(9999))) {
                m_buffer.remove(0, m_buffer.indexOf(msg(9999)) + msg(9999).size());
                replies.push_back(m_clock.nsecsElapsed() / 1e6);
            }
        });
        m_socket.connectToHost(QHostAddress::LocalHost, port);
        m_socket.write(msg(1));
    }
    void probe()
    {
        m_clock.start();
        m_socket.write(msg(9999));
    }

    std::vector<double> replies;

private:
    QTcpSocket m_socket;
    QElapsedTimer m_clock;
    QByteArray m_buffer;
};

// Reports and keep-alives for `seconds`, one each 200 ms: their p99 in milliseconds.
std::pair<double, double> timedRounds(DStation* station, DProber* prober, int seconds)
{
    std::vector<double> reportsMs;
    for (int round = 0; round < seconds * 5; ++round) {
        const int before = station->received(0);
        const qint64 sentAt = station->clock.nsecsElapsed();
        station->tool.say("event");
        prober->probe();
        spinUntil([&] { return station->received(0) > before; }, 5000);
        if (station->received(0) > before)
            reportsMs.push_back((station->subscribers.at(0)->arrivals.last() - sentAt) / 1e6);
        spin(200);
    }
    if (reportsMs.empty() || prober->replies.empty())
        return {-1, -1};
    return {percentile(reportsMs, 0.99), percentile(prober->replies, 0.99)};
}

void BM_UnderFlood(benchmark::State& state)
{
    const int seconds = qEnvironmentVariableIsSet("HYTORC_BENCH_SECONDS")
        ? qBound(1, qEnvironmentVariableIntValue("HYTORC_BENCH_SECONDS"), 30) : 30;
    DStation station({"--baud", "0"}, 1);
    if (!station.ready) {
        state.SkipWithError("hytorcd, the simulator or the clients could not start");
        return;
    }
    DProber prober(station.port);
    spin(500);
    for (auto _ : state) {
        const std::pair<double, double> quiet = timedRounds(&station, &prober, 5);
        prober.replies.clear();
        DFlooder flooder(station.port);
        spin(1000);  // the pipeline full
        const qint64 repliesBefore = flooder.replyBytes();
        const std::pair<double, double> flooded = timedRounds(&station, &prober, seconds);
        spin(500);
        if (flooder.replyBytes() == repliesBefore) {
            state.SkipWithError("the flooder got no replies: closed, the figures are not under a flood");
            return;
        }
        state.counters["0065_per_s"] = (flooder.replyBytes() - repliesBefore) / 118.0 / seconds;
        if (flooded.first < 0 || flooded.second < 0) {
            state.SkipWithError("no report or no keep-alive came back under the flood");
            return;
        }
        state.counters["report_p99_ms_quiet"] = quiet.first;
        state.counters["report_p99_ms_flood"] = flooded.first;
        state.counters["report_added_p99_ms"] = flooded.first - quiet.first;
        state.counters["9999_p99_ms_quiet"] = quiet.second;
        state.counters["9999_p99_ms_flood"] = flooded.second;
        state.counters["9999_added_p99_ms"] = flooded.second - quiet.second;
    }
}

} // namespace

// A flood of 0064 from one client against a report's commit and another client's answer.
BENCHMARK(BM_UnderFlood)->Unit(benchmark::kSecond)->Iterations(1);
// {clients, journal on disk}: tmpfs shows what the journal's fsync costs of the whole.
BENCHMARK(BM_ReportTo0061)->Args({1, 1})->Args({5, 1})->Args({1, 0})->Args({5, 0})->Unit(benchmark::kMillisecond)->Iterations(1);
// 0 clients: hytorcd's own share (link, plug-in, journal), for comparison.
BENCHMARK(BM_CpuAtLinkCapacity)->Arg(0)->Arg(5)->Unit(benchmark::kSecond)->UseManualTime()->Iterations(1);
