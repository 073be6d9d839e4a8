// libFuzzer target: the serial driver's chunking. A byte stream from the tool reaches a
// command's engine through the driver's listeners cut in arbitrary chunks; what the
// engine makes of it (writes, reply, events, errors) must not depend on the cuts.
// A second listener closes itself while being told, a third opens meanwhile: each
// listener gets every chunk from its opening on, numbered 1, 2, ... in order.
//
// Input: byte 0 is the number of cuts n (0-15), the next n bytes the chunk sizes, the
// rest is the stream (its remainder is the last chunk).
#include "d_serial_listeners.h"
#include "fuzz_check.h"
#include "hytorc_hcp_comm.h"
#include "hytorc_hcp_frame.h"
#include "i_instruction_target.h"

#include <QSignalSpy>

namespace {

// An engine awaiting the reply to a request, and everything it said.
struct Engine {
    QObject owner;
    HytorcHcpComm* comm = new HytorcHcpComm(&owner);
    QSignalSpy writes{comm, &HytorcHcpComm::sigWriteRequest};
    QSignalSpy data{comm, &HytorcHcpComm::sigDataReady};
    QSignalSpy events{comm, &HytorcHcpComm::sigEventReady};
    QSignalSpy errors{comm, &HytorcHcpComm::sigError};
    QSignalSpy junk{comm, &HytorcHcpComm::sigJunkFrameDetected};

    Engine()
    {
        comm->sendRequest(QStringLiteral("GET ADMIN TOOL_INFO"));
        QMetaObject::invokeMethod(comm, "sendUicHeader", Qt::DirectConnection);
        comm->onRawData(HytorcHcpFrame::buildAckFrame() + HytorcHcpFrame::buildAckFrame(), -1);
    }
    QList<QList<QVariant>> said() const { return writes + data + events + errors; }
};

class Sink : public IInstructionReplySink
{
public:
    void instructionReply(quint64 id, const QVariantMap& reply) override
    {
        const int number = reply.value("number").toInt();
        FUZZ_CHECK(number == lastNumber + 1 || (lastNumber == 0 && number > 0));
        lastNumber = number;
        if (engine)
            engine->comm->onRawData(reply.value("frame").toByteArray(), number);
        if (onReply)
            onReply(id);
    }
    void instructionEnded(quint64) override {}

    Engine* engine = nullptr;
    std::function<void(quint64)> onReply;
    int lastNumber = 0;
};

void checkChunking(const uint8_t* data, size_t size)
{
    if (size == 0 || size > 65536) // past 65536 the two overflow differently, as they should
        return;
    const size_t cuts = std::min<size_t>(data[0] & 15, size - 1);
    const QByteArray stream(reinterpret_cast<const char*>(data + 1 + cuts), int(size - 1 - cuts));

    Engine whole;
    whole.comm->onRawData(stream, 1);

    Engine chunked;
    DSerialListeners listeners;
    Sink command, closing, late;
    command.engine = &chunked;
    closing.onReply = [&listeners](quint64 id) { FUZZ_CHECK(listeners.remove(id)); };
    command.onReply = [&](quint64) {
        if (command.lastNumber == 2)
            listeners.add(3, QStringLiteral("listen"), &late);
    };
    listeners.add(1, QStringLiteral("prog"), &command);
    listeners.add(2, QStringLiteral("listen"), &closing);
    int from = 0;
    for (size_t i = 0; i <= cuts; ++i) {
        const int length = i < cuts ? int(data[1 + i]) : int(stream.size()) - from;
        listeners.deliver(stream.mid(from, length));
        from = std::min(from + length, int(stream.size()));
    }
    FUZZ_CHECK(closing.lastNumber == 1);
    FUZZ_CHECK(late.lastNumber == (command.lastNumber >= 3 ? command.lastNumber : 0));

    // The junk rule judges chunks, not the stream: only then may the two differ.
    if (whole.junk.isEmpty() && chunked.junk.isEmpty())
        FUZZ_CHECK(whole.said() == chunked.said());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    checkChunking(data, size);
    fuzzEndOfInput();
    return 0;
}
