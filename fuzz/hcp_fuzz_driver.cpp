#include "hcp_fuzz_driver.h"

#include "hytorc_hcp_comm.h"
#include "hytorc_hcp_constants.h"
#include "hytorc_hcp_frame.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QEvent>
#include <QMetaObject>
#include <QScopedPointer>
#include <QVariantMap>

#include <cstdio>
#include <cstdlib>
#include <vector>

#define HCP_CHECK(cond)                                                                                   \
    do {                                                                                                  \
        if (!(cond)) {                                                                                    \
            std::fprintf(stderr, "hcp fuzz: check failed at %s:%d: %s\n", __FILE__, __LINE__, #cond);    \
            std::abort();                                                                                 \
        }                                                                                                 \
    } while (0)

namespace hcpfuzz {
namespace {

void silentHandler(QtMsgType, const QMessageLogContext&, const QString&) {}

const char* const c_requests[] = {"GET ADMIN TOOL_INFO\r\n", "GET JOBS PROFILE\r\n", "  SET LOCK 1 ",
                                  "GET STATE BATTERY", ""};

QString requestText(uint8_t selector)
{
    return QString::fromLatin1(c_requests[selector % (sizeof(c_requests) / sizeof(c_requests[0]))]);
}

// Reads the input record by record.
struct Reader {
    const uint8_t* data;
    size_t size;
    size_t pos = 0;
    bool flooded = false;
    bool atEnd() const { return pos >= size; }
    uint8_t byte() { return pos < size ? data[pos++] : 0; }
    QByteArray bytes(size_t count)
    {
        const size_t take = count < size - pos ? count : size - pos;
        QByteArray out(reinterpret_cast<const char*>(data + pos), static_cast<int>(take));
        pos += take;
        return out;
    }
};

enum EnOp { CeOpReset = 0xF0, CeOpExpire = 0xF1, CeOpRequest = 0xF2, CeOpFlood = 0xF3, CeOpLong = 0xF4,
             CeOpNothing = 0xFF };

struct Record {
    int op = -1; // -1: end of input
    int number = 0;
    QByteArray chunk;
    uint8_t arg = 0;
};

Record nextRecord(Reader& in)
{
    Record r;
    if (in.atEnd())
        return r;
    r.op = in.byte();
    if (r.op < CeOpReset) {
        r.number = static_cast<int8_t>(in.byte());
        r.chunk = in.bytes(static_cast<size_t>(r.op));
    } else if (r.op == CeOpRequest) {
        r.arg = in.byte();
    } else if (r.op == CeOpFlood) {
        const int count = 65530 + in.byte();
        const char fill = static_cast<char>(in.byte());
        r.number = static_cast<int8_t>(in.byte());
        if (in.flooded) {
            r.op = CeOpNothing; // one per input: each costs a 64 KiB pass
        } else {
            in.flooded = true;
            r.chunk = QByteArray(count, fill);
        }
    } else if (r.op == CeOpLong) {
        r.number = static_cast<int8_t>(in.byte());
        const size_t length = (size_t(in.byte()) << 8) | in.byte();
        r.chunk = in.bytes(length);
    }
    return r;
}

bool isChunk(const Record& r) { return r.op >= 0 && (r.op < CeOpReset || r.op == CeOpFlood || r.op == CeOpLong); }

// What the engine says: the signal and its argument.
struct Said {
    char kind = 0; // W write, D data, V event, E error, J junk
    QByteArray packet;
    QStringList lines;
    QString text;
    bool operator==(const Said& other) const
    {
        return kind == other.kind && packet == other.packet && lines == other.lines && text == other.text;
    }
};
using SaidList = QList<Said>;

Said writeText(const QByteArray& packet) { Said s; s.kind = 'W'; s.packet = packet; return s; }
Said dataText(const QStringList& lines) { Said s; s.kind = 'D'; s.lines = lines; return s; }
Said eventText(const QStringList& lines) { Said s; s.kind = 'V'; s.lines = lines; return s; }
Said errorText(const QString& message) { Said s; s.kind = 'E'; s.text = message; return s; }
Said junkText() { Said s; s.kind = 'J'; return s; }

// The engine rules read literally, on top of the codec's extractFrames and parseFrame.
class Model
{
public:
    explicit Model(SaidList* out) : m_out(out) {}

    void sendRequest(const QString& request)
    {
        m_pendingRequest = request.trimmed() + QStringLiteral("\r\n");
        m_retryCount = 0;
        m_responseLines.clear();
        m_rawBuffer.clear();
        m_sequence = (m_sequence + 1) % 4;
    }
    void sendUicHeader()
    {
        m_state = 1;
        *m_out << writeText(HytorcHcpFrame::buildFrame(c_uicHeader, false, true, false, 0));
    }
    void sendDataPayload()
    {
        m_state = 2;
        *m_out << writeText(HytorcHcpFrame::buildFrame(m_pendingRequest.toUtf8(), true, false, true, m_sequence));
    }
    void onRetryTimeout()
    {
        if (m_state == 0)
            return;
        if (m_retryCount < 5) {
            ++m_retryCount;
            sendUicHeader();
        } else {
            *m_out << errorText(QStringLiteral("Tool communication timeout"));
        }
    }
    void reset()
    {
        m_state = 0;
        m_sequence = 0;
        m_retryCount = 0;
        m_responseLines.clear();
        m_rawBuffer.clear();
    }
    void onRawData(const QByteArray& data, int number)
    {
        if (number == m_lastChunkNumber && m_lastChunkNumber != -1)
            return;
        m_lastChunkNumber = number;
        if (data.isEmpty())
            return;
        if (data.size() > 6) {
            int count = 0;
            for (char c : data)
                count += (c == '\0' || c == '\xFF');
            if (count >= 0.85 * data.size()) {
                m_rawBuffer.clear();
                *m_out << junkText();
                return;
            }
        }
        if (m_rawBuffer.size() + data.size() > 65536) {
            m_rawBuffer.clear();
            *m_out << errorText(QStringLiteral("Raw buffer overflow"));
            return;
        }
        m_rawBuffer.append(data);
        HytorcHcpFrame::extractFrames(m_rawBuffer, [this](const QByteArray& frame) { processFrame(frame); });
    }

private:
    void processFrame(const QByteArray& frame)
    {
        const QVariantMap map = HytorcHcpFrame::parseFrame(frame);
        if (!map.value(QStringLiteral("valid")).toBool())
            return;
        if (map.value(QStringLiteral("isAck")).toBool()) {
            if (m_state == 1)
                sendDataPayload();
            else if (m_state == 2)
                m_state = 3;
            return;
        }
        const QByteArray payload = map.value(QStringLiteral("payload")).toByteArray();
        const bool last = map.value(QStringLiteral("isLast")).toBool();
        if (map.value(QStringLiteral("isToolInitiated")).toBool() || payload.startsWith(c_eventLogPrefix)) {
            *m_out << writeText(HytorcHcpFrame::buildAckFrame());
            for (const QString& line : HytorcHcpFrame::judgeEventLines(HytorcHcpFrame::payloadLines(payload))) {
                if (m_eventLines.size() >= 100)
                    m_eventLines.removeFirst();
                m_eventLines << line;
            }
            if (last) {
                *m_out << eventText(m_eventLines);
                m_eventLines.clear();
            }
            return;
        }
        if (m_state != 3)
            return;
        *m_out << writeText(HytorcHcpFrame::buildAckFrame());
        QString error;
        if (!HytorcHcpFrame::judgeReplyLines(HytorcHcpFrame::payloadLines(payload), m_pendingRequest,
                                             &m_responseLines, &error)) {
            *m_out << errorText(error);
            return;
        }
        if (last) {
            *m_out << dataText(m_responseLines);
            m_state = 0;
        }
    }

    SaidList* m_out;
    QString m_pendingRequest;
    QByteArray m_rawBuffer;
    QStringList m_responseLines;
    QStringList m_eventLines;
    int m_state = 0;
    int m_sequence = 0;
    int m_retryCount = 0;
    int m_lastChunkNumber = -1;
};

// the extraction read literally, index by index.
void literalExtract(QByteArray& buffer, QList<QByteArray>* frames)
{
    if (buffer.size() < 6)
        return;
    int p = 0;
    int e = 0;
    for (;;) {
        const int i = buffer.indexOf('\0', p);
        if (i < 0) {
            buffer.clear();
            return;
        }
        if (i + 3 >= buffer.size()) { // the header itself is cut: the frame is not complete
            buffer = buffer.mid(i);
            return;
        }
        const int n = ((quint8(buffer.at(i + 2)) & 3) << 8) | quint8(buffer.at(i + 3));
        e = i + n + 6;
        if (e > buffer.size()) {
            buffer = buffer.mid(i);
            return;
        }
        *frames << buffer.mid(i, n + 6);
        p = e;
        if (!(e + 5 < buffer.size()))
            break;
    }
    buffer.remove(0, e);
}

void checkExtraction(const std::vector<QByteArray>& chunks)
{
    QByteArray codecBuffer;
    QByteArray literalBuffer;
    for (const QByteArray& chunk : chunks) {
        codecBuffer.append(chunk);
        literalBuffer.append(chunk);
        QList<QByteArray> codecFrames;
        QList<QByteArray> literalFrames;
        HytorcHcpFrame::extractFrames(codecBuffer, [&codecFrames](const QByteArray& f) { codecFrames << f; });
        literalExtract(literalBuffer, &literalFrames);
        HCP_CHECK(codecFrames == literalFrames);
        HCP_CHECK(codecBuffer == literalBuffer);
        for (const QByteArray& frame : codecFrames) {
            HytorcHcpFrame::Header header;
            HCP_CHECK(HytorcHcpFrame::parseHeader(frame, &header));
            HCP_CHECK(frame.at(0) == '\0' && frame.size() == header.length + 6); // so parseFrame calls it valid
        }
        // What stays is short, or an incomplete frame from its start byte on.
        if (codecBuffer.size() >= 6) {
            HytorcHcpFrame::Header header;
            HCP_CHECK(codecBuffer.at(0) == '\0');
            HCP_CHECK(HytorcHcpFrame::parseHeader(codecBuffer, &header));
            HCP_CHECK(codecBuffer.size() < header.length + 6);
        }
    }
}

// Checks on what the engine says, whatever drove it.
void checkOutput(const Said& said, const QString& request)
{
    static const QByteArray header = HytorcHcpFrame::buildFrame(c_uicHeader, false, true, false, 0);
    static const QByteArray ack = HytorcHcpFrame::buildAckFrame();
    if (said.kind == 'W') {
        if (said.packet == header || said.packet == ack)
            return;
        const QVariantMap map = HytorcHcpFrame::parseFrame(said.packet);
        HCP_CHECK(map.value(QStringLiteral("valid")).toBool());
        const QByteArray payload = map.value(QStringLiteral("payload")).toByteArray();
        HCP_CHECK(payload == (request.trimmed() + QStringLiteral("\r\n")).toUtf8());
        HCP_CHECK(said.packet
                  == HytorcHcpFrame::buildFrame(payload, true, false, true, (quint8(said.packet.at(2)) >> 4) & 3));
    } else if (said.kind == 'D' || said.kind == 'V') {
        HCP_CHECK(said.kind == 'D' || said.lines.size() <= 100);
        for (const QString& line : said.lines) {
            HCP_CHECK(!line.isEmpty() && line == line.trimmed());
            HCP_CHECK(!line.contains(QLatin1Char('\r')) && !line.contains(QLatin1Char('\n')));
            HCP_CHECK(line != QLatin1String("HCD") && line != QLatin1String("RESPONSE") && line != c_errorCodeOk);
            if (said.kind == 'D') {
                HCP_CHECK(!c_ignoredResponseLines.contains(line) && line != c_failed);
                HCP_CHECK(!line.startsWith(c_errorCodePrefix));
                HCP_CHECK(line != request.trimmed());
            }
        }
    } else if (said.kind == 'E') {
        HCP_CHECK(said.text == QLatin1String("Tool communication timeout")
                  || said.text == QLatin1String("Raw buffer overflow")
                  || said.text.startsWith(QLatin1String("Tool returned error: ")));
    } else {
        HCP_CHECK(said.kind == 'J');
    }
}

} // namespace

void init(bool quiet)
{
    if (!QCoreApplication::instance()) {
        static int argc = 1;
        static char name[] = "fuzz_hcp";
        static char* argv[] = {name, nullptr};
        new QCoreApplication(argc, argv); // lives as long as the process
    }
    if (quiet)
        qInstallMessageHandler(silentHandler);
}

void run(const uint8_t* data, size_t size)
{
    if (size == 0)
        return;
    Reader in{data, size};
    const uint8_t setup = in.byte();
    const int startState = setup & 3;
    const bool resetFromSlots = setup & 4;
    const bool ackFromSlot = setup & 8;
    const bool chunkFromSlot = setup & 16;
    const bool modelled = !(resetFromSlots || ackFromSlot || chunkFromSlot);

    SaidList engineSaid;
    SaidList modelSaid;
    Model model(&modelSaid);
    QString request = requestText(0);
    std::vector<QByteArray> chunks;
    int depth = 0;

    {
        QScopedPointer<QObject> owner(new QObject);
        HytorcHcpComm* comm = new HytorcHcpComm(owner.data());
        auto feed = [&](const Record& r) {
            if (isChunk(r)) {
                chunks.push_back(r.chunk);
                comm->onRawData(r.chunk, r.number);
            }
        };
        QObject::connect(comm, &HytorcHcpComm::sigWriteRequest, comm, [&](const QByteArray& packet) {
            engineSaid << writeText(packet);
            if (depth >= 8)
                return;
            ++depth;
            if (ackFromSlot && packet != HytorcHcpFrame::buildAckFrame())
                comm->onRawData(HytorcHcpFrame::buildAckFrame(), -1);
            if (chunkFromSlot) {
                const size_t mark = in.pos;
                const Record r = nextRecord(in);
                if (isChunk(r))
                    feed(r);
                else
                    in.pos = mark;
            }
            --depth;
        });
        QObject::connect(comm, &HytorcHcpComm::sigDataReady, comm, [&](const QStringList& lines) {
            engineSaid << dataText(lines);
            if (resetFromSlots)
                comm->reset();
        });
        QObject::connect(comm, &HytorcHcpComm::sigEventReady, comm,
                         [&](const QStringList& lines) { engineSaid << eventText(lines); });
        QObject::connect(comm, &HytorcHcpComm::sigError, comm, [&](const QString& message) {
            engineSaid << errorText(message);
            if (resetFromSlots)
                comm->reset();
        });
        QObject::connect(comm, &HytorcHcpComm::sigJunkFrameDetected, comm, [&]() { engineSaid << junkText(); });

        int checked = 0;
        auto compare = [&]() {
            if (modelled)
                HCP_CHECK(engineSaid.size() == modelSaid.size());
            for (; checked < engineSaid.size(); ++checked) {
                checkOutput(engineSaid.at(checked), request);
                if (modelled)
                    HCP_CHECK(engineSaid.at(checked) == modelSaid.at(checked));
            }
        };

        if (startState >= 1) {
            comm->sendRequest(request);
            model.sendRequest(request);
            HCP_CHECK(QMetaObject::invokeMethod(comm, "sendUicHeader", Qt::DirectConnection));
            model.sendUicHeader();
        }
        for (int s = 2; s <= startState; ++s) {
            comm->onRawData(HytorcHcpFrame::buildAckFrame(), -1);
            model.onRawData(HytorcHcpFrame::buildAckFrame(), -1);
        }
        compare();

        for (Record r = nextRecord(in); r.op >= 0; r = nextRecord(in)) {
            if (isChunk(r)) {
                feed(r);
                model.onRawData(r.chunk, r.number);
            } else if (r.op == CeOpReset) {
                comm->reset();
                model.reset();
            } else if (r.op == CeOpExpire) {
                HCP_CHECK(QMetaObject::invokeMethod(comm, "onRetryTimeout", Qt::DirectConnection));
                model.onRetryTimeout();
            } else if (r.op == CeOpRequest) {
                request = requestText(r.arg);
                comm->sendRequest(request);
                model.sendRequest(request);
                HCP_CHECK(QMetaObject::invokeMethod(comm, "sendUicHeader", Qt::DirectConnection));
                model.sendUicHeader();
            }
            compare();
        }
    }
    // sendRequest leaves a 200 ms single-shot timer object behind (a child of the event
    // dispatcher) that lives until it fires, into nothing since the engine is gone.
    // Delete them now: every input then frees what it allocated, and nothing piles up.
    if (QAbstractEventDispatcher* dispatcher = QAbstractEventDispatcher::instance()) {
        const QObjectList children = dispatcher->children();
        for (QObject* child : children) {
            if (qstrcmp(child->metaObject()->className(), "QSingleShotTimer") == 0)
                delete child;
        }
    }

    checkExtraction(chunks);
}

} // namespace hcpfuzz
