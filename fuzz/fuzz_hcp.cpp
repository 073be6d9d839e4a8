// libFuzzer target: the HCP engine fed arbitrary chunks, resets, timer expiries and new
// requests. Checked: no crash, the 65536-byte bounds, ACKs only for data frames (and one
// for every event frame), at most six headers and at most one outcome per transaction.
//
// Input: byte 0 is the set-up (bit 0: the owner resets the engine on an outcome, as a
// command ends; bit 1: the next chunk is fed from inside a write, as a synchronous peer).
// Then records opened by one byte op:
//   0x00-0xEF  a chunk: its number (next byte, signed), then op bytes;
//   0xF0 reset;  0xF1 the retry timer expires;  0xF2 a new request, header at once;
//   0xF3 a flood: 65000 + 4 * (next byte) bytes of (the byte after), number after.
#include "fuzz_check.h"
#include "hytorc_hcp_comm.h"
#include "hytorc_hcp_frame.h"


namespace {

struct Input {
    const uint8_t* data;
    size_t size;
    size_t pos = 0;
    bool atEnd() const { return pos >= size; }
    uint8_t byte() { return pos < size ? data[pos++] : 0; }
    QByteArray bytes(size_t count)
    {
        count = std::min(count, size - pos);
        pos += count;
        return QByteArray(reinterpret_cast<const char*>(data + pos - count), int(count));
    }
};

// Header fields only: the decoded map's allocations would cost more than the engine itself.
bool isEventFrame(const HytorcHcpFrame::Header& header, const QByteArray& frame)
{
    return header.isToolInitiated() || frame.mid(HytorcHcpFrame::c_headerSize, header.length).startsWith("SET EVENT LOG");
}

class Harness
{
public:
    Harness(bool resetOnOutcome, bool peer)
        : m_owner(new QObject)
        , m_comm(new HytorcHcpComm(m_owner.data()))
        , m_peer(peer)
        , m_checkAcks(!peer)
    {
        QObject::connect(m_comm, &HytorcHcpComm::sigWriteRequest, m_comm, [this](const QByteArray& p) { onWrite(p); });
        // Once an outcome has ended the transaction (and reset the engine), only a chunk
        // overflowing the raw buffer may still bring an error, whatever the state.
        const auto outcome = [this, resetOnOutcome](bool rawOverflow) {
            FUZZ_CHECK(!resetOnOutcome || m_outcomes == 0 || rawOverflow);
            ++m_outcomes;
            if (resetOnOutcome)
                m_comm->reset();
            m_purged = m_purged || resetOnOutcome;
        };
        QObject::connect(m_comm, &HytorcHcpComm::sigDataReady, m_comm, [this, outcome](const QStringList& lines) {
            int size = 0;
            for (const QString& line : lines)
                size += line.size();
            FUZZ_CHECK(size <= 65536);
            outcome(false);
        });
        QObject::connect(m_comm, &HytorcHcpComm::sigError, m_comm, [this, outcome](const QString& error) {
            const bool overflow = error == QLatin1String("Raw buffer overflow");
            m_purged = m_purged || overflow;
            outcome(overflow);
        });
        QObject::connect(m_comm, &HytorcHcpComm::sigJunkFrameDetected, m_comm, [this]() { m_purged = true; });
    }

    void run(Input& in)
    {
        m_in = &in;
        while (!in.atEnd()) {
            const uint8_t op = in.byte();
            if (op < 0xF0) {
                const int number = int8_t(in.byte());
                feed(in.bytes(op), number);
            } else if (op == 0xF0) {
                m_comm->reset();
                m_shadow.clear();
            } else if (op == 0xF1) {
                m_purged = false;
                QMetaObject::invokeMethod(m_comm, "onRetryTimeout", Qt::DirectConnection);
                if (m_purged) // a timeout's outcome reset the engine
                    m_shadow.clear();
            } else if (op == 0xF2) {
                newRequest(in.byte());
            } else if (op == 0xF3) {
                const int size = 65000 + 4 * in.byte();
                const char fill = char(in.byte());
                feed(QByteArray(size, fill), int8_t(in.byte()));
            }
        }
    }

private:
    void newRequest(uint8_t which)
    {
        static const char* const requests[] = {"GET ADMIN TOOL_INFO\r\n", " GET JOBS PROFILE", ""};
        const QString text = QString::fromLatin1(requests[which % 3]);
        m_comm->sendRequest(text);
        m_requests.clear();
        for (int sequence = 0; sequence < 4; ++sequence)
            m_requests << HytorcHcpFrame::buildFrame(text.trimmed().toUtf8() + "\r\n", true, false, true, sequence);
        m_outcomes = 0;
        m_headers = 0;
        m_shadow.clear();
        QMetaObject::invokeMethod(m_comm, "sendUicHeader", Qt::DirectConnection);
    }

    void feed(const QByteArray& chunk, int number)
    {
        const bool duplicate = number == m_lastNumber && m_lastNumber != -1;
        m_lastNumber = number;
        m_acks = 0;
        m_purged = false;
        m_comm->onRawData(chunk, number);
        if (duplicate || !m_checkAcks)
            return;
        FUZZ_CHECK(chunk.size() <= 65536 || m_purged);
        // The frames the chunk completes, cut by the codec on a copy of what the engine keeps.
        int events = 0;
        int others = 0;
        m_shadow += chunk;
        HytorcHcpFrame::extractFrames(m_shadow, [&](const QByteArray& frame) {
            HytorcHcpFrame::Header header;
            if (HytorcHcpFrame::parseHeader(frame, &header) && !header.isAck())
                ++(isEventFrame(header, frame) ? events : others);
        });
        FUZZ_CHECK(m_acks <= events + others);
        FUZZ_CHECK(m_acks >= events || m_purged);
        if (m_purged)
            m_shadow.clear();
    }

    void onWrite(const QByteArray& packet)
    {
        if (packet == HytorcHcpFrame::buildAckFrame()) {
            ++m_acks;
        } else if (packet == HytorcHcpFrame::buildFrame("UIC\r\n", false, true, false, 0)) {
            FUZZ_CHECK(++m_headers <= 6);
        } else {
            FUZZ_CHECK(m_requests.contains(packet));
        }
        if (m_peer && !m_in->atEnd() && m_in->data[m_in->pos] < 0xF0) {
            m_peer = false; // once: a peer answering every write would recurse without end
            const int size = m_in->byte();
            const int number = int8_t(m_in->byte());
            m_comm->onRawData(m_in->bytes(size), number);
        }
    }

    QScopedPointer<QObject> m_owner;
    HytorcHcpComm* m_comm;
    Input* m_in = nullptr;
    bool m_peer;
    bool m_checkAcks;
    QList<QByteArray> m_requests;
    QByteArray m_shadow;
    int m_lastNumber = -1;
    int m_outcomes = 0;
    int m_headers = 0;
    int m_acks = 0;
    bool m_purged = false;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    Input in{data, size};
    const uint8_t setup = in.byte();
    {
        Harness harness(setup & 1, setup & 2);
        harness.run(in);
    }
    fuzzEndOfInput();
    return 0;
}
