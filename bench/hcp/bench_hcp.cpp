// Throughput of HytorcHcpComm::onRawData (bytes per second of received stream), next to
// a baseline that only scans the same chunks for frame starts with memchr.
//
//   BM_EventFrames/<chunk>     64-byte tool-initiated event frames (each one ACKed and
//                              reported with sigEventReady), cut into chunks of 1, 20, 512
//   BM_MemchrBaseline/<chunk>  the same chunks, only memchr for 0x00
//   BM_ReplyFrames/<chunk>     a 64-frame reply (256-byte frames, 8 lines each) in the
//                              awaiting-reply state, ending with sigDataReady
//   BM_JunkChunks/64           64-byte chunks of 0xFF: purged by the junk rule (the
//                              critical log line is formatted, then dropped here)
//   BM_Noise/512               ASCII noise without any frame start: discarded by extraction
#include "hytorc_hcp_comm.h"
#include "hytorc_hcp_frame.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QMetaObject>
#include <QVector>

#include <climits>
#include <cstring>

namespace {

constexpr int c_eventFrameSize = 64;
constexpr int c_eventFrames = 1024; // 64 KiB of stream per iteration

int g_chunkNumber = 0;
int nextChunkNumber()
{
    if (++g_chunkNumber == INT_MAX)
        g_chunkNumber = 0;
    return g_chunkNumber;
}

QVector<QByteArray> cut(const QByteArray& stream, int chunkSize)
{
    QVector<QByteArray> chunks;
    for (int at = 0; at < stream.size(); at += chunkSize)
        chunks << stream.mid(at, chunkSize);
    return chunks;
}

QByteArray eventStream()
{
    QByteArray stream;
    for (int i = 0; i < c_eventFrames; ++i) {
        QByteArray payload = "SET EVENT LOG\r\nTQ," + QByteArray::number(1000 + i % 9000) + ",NM,OK\r\n";
        payload += QByteArray(c_eventFrameSize - 6 - payload.size() - 2, 'x') + "\r\n";
        const QByteArray frame = HytorcHcpFrame::encodeFrame(HytorcHcpFrame::c_toolInitiatedFlag,
                                                             HytorcHcpFrame::c_dataFlag | HytorcHcpFrame::c_lastFlag,
                                                             payload);
        Q_ASSERT(frame.size() == c_eventFrameSize);
        stream += frame;
    }
    return stream;
}

QByteArray replyStream(int frames)
{
    QByteArray stream;
    for (int i = 0; i < frames; ++i) {
        QByteArray payload;
        for (int line = 0; line < 8; ++line)
            payload += "P" + QByteArray::number(i * 8 + line) + ",TORQUE,NM,120.5,ANGLE,30,";
        payload = payload.left(250 - 2) + "\r\n";
        const bool last = i == frames - 1;
        stream += HytorcHcpFrame::encodeFrame(0x00, HytorcHcpFrame::c_dataFlag | (last ? HytorcHcpFrame::c_lastFlag : 0),
                                              payload);
    }
    return stream;
}

struct Sink {
    qint64 writes = 0;
    qint64 events = 0;
    qint64 data = 0;
    qint64 junk = 0;
    qint64 errors = 0;
};

void connectSink(HytorcHcpComm* comm, Sink* sink)
{
    QObject::connect(comm, &HytorcHcpComm::sigWriteRequest, comm, [sink](const QByteArray&) { ++sink->writes; });
    QObject::connect(comm, &HytorcHcpComm::sigEventReady, comm, [sink](const QStringList&) { ++sink->events; });
    QObject::connect(comm, &HytorcHcpComm::sigDataReady, comm, [sink](const QStringList&) { ++sink->data; });
    QObject::connect(comm, &HytorcHcpComm::sigJunkFrameDetected, comm, [sink]() { ++sink->junk; });
    QObject::connect(comm, &HytorcHcpComm::sigError, comm, [sink](const QString&) { ++sink->errors; });
}

// An engine whose signals only count, fed chunk by chunk with increasing chunk numbers.
struct CountedEngine {
    QObject owner;
    HytorcHcpComm* comm = new HytorcHcpComm(&owner);
    Sink sink;
    CountedEngine() { connectSink(comm, &sink); }
    void feed(const QVector<QByteArray>& chunks)
    {
        for (const QByteArray& chunk : chunks)
            comm->onRawData(chunk, nextChunkNumber());
    }
};

qint64 totalSize(const QVector<QByteArray>& chunks)
{
    qint64 total = 0;
    for (const QByteArray& chunk : chunks)
        total += chunk.size();
    return total;
}

void BM_EventFrames(benchmark::State& state)
{
    const QVector<QByteArray> chunks = cut(eventStream(), int(state.range(0)));
    CountedEngine engine;
    const Sink& sink = engine.sink;
    for (auto _ : state)
        engine.feed(chunks);
    if (sink.events != qint64(state.iterations()) * c_eventFrames || sink.writes != sink.events)
        state.SkipWithError("event frames lost");
    state.SetBytesProcessed(qint64(state.iterations()) * totalSize(chunks));
    state.counters["frames/s"] = benchmark::Counter(double(sink.events), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_EventFrames)->Arg(1)->Arg(20)->Arg(512);

void BM_MemchrBaseline(benchmark::State& state)
{
    const QVector<QByteArray> chunks = cut(eventStream(), int(state.range(0)));
    qint64 starts = 0;
    for (auto _ : state) {
        for (const QByteArray& chunk : chunks) {
            const char* at = chunk.constData();
            const char* end = at + chunk.size();
            while (const void* hit = std::memchr(at, 0x00, size_t(end - at))) {
                ++starts;
                at = static_cast<const char*>(hit) + 1;
            }
        }
        benchmark::DoNotOptimize(starts);
    }
    state.SetBytesProcessed(qint64(state.iterations()) * totalSize(chunks));
}
BENCHMARK(BM_MemchrBaseline)->Arg(1)->Arg(20)->Arg(512);

// Engine in state 3: header and request acknowledged.
void toAwaitingReply(HytorcHcpComm* comm)
{
    comm->reset();
    QMetaObject::invokeMethod(comm, "sendUicHeader", Qt::DirectConnection);
    comm->onRawData(HytorcHcpFrame::buildAckFrame(), nextChunkNumber());
    comm->onRawData(HytorcHcpFrame::buildAckFrame(), nextChunkNumber());
}

void BM_ReplyFrames(benchmark::State& state)
{
    constexpr int frames = 64;
    const QVector<QByteArray> chunks = cut(replyStream(frames), int(state.range(0)));
    CountedEngine engine;
    const Sink& sink = engine.sink;
    engine.comm->sendRequest(QStringLiteral("GET JOBS PROFILE")); // its header timer never runs here
    for (auto _ : state) {
        state.PauseTiming();
        toAwaitingReply(engine.comm);
        state.ResumeTiming();
        engine.feed(chunks);
    }
    if (sink.data != qint64(state.iterations()))
        state.SkipWithError("reply not complete");
    state.SetBytesProcessed(qint64(state.iterations()) * totalSize(chunks));
}
BENCHMARK(BM_ReplyFrames)->Arg(20)->Arg(512);

void BM_JunkChunks(benchmark::State& state)
{
    const QVector<QByteArray> chunks(256, QByteArray(int(state.range(0)), '\xFF'));
    CountedEngine engine;
    const Sink& sink = engine.sink;
    for (auto _ : state)
        engine.feed(chunks);
    if (sink.junk != qint64(state.iterations()) * chunks.size())
        state.SkipWithError("junk not detected");
    state.SetBytesProcessed(qint64(state.iterations()) * totalSize(chunks));
}
BENCHMARK(BM_JunkChunks)->Arg(64);

void BM_Noise(benchmark::State& state)
{
    QByteArray noise(64 * 1024, Qt::Uninitialized);
    for (int i = 0; i < noise.size(); ++i)
        noise[i] = char('A' + (i * 7) % 26);
    const QVector<QByteArray> chunks = cut(noise, int(state.range(0)));
    CountedEngine engine;
    const Sink& sink = engine.sink;
    for (auto _ : state)
        engine.feed(chunks);
    if (sink.writes + sink.junk + sink.errors != 0)
        state.SkipWithError("noise taken for something");
    state.SetBytesProcessed(qint64(state.iterations()) * totalSize(chunks));
}
BENCHMARK(BM_Noise)->Arg(512);

void silentHandler(QtMsgType, const QMessageLogContext&, const QString&) {}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    qInstallMessageHandler(silentHandler);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
