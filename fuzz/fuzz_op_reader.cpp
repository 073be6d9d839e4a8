// libFuzzer target: the Open Protocol server's message reader on a client's byte stream.
// Input: byte 0 sets the size of the chunks (1 to 32 bytes) the rest arrives in, as a socket
// may cut it. Checked: read chunk by chunk, the stream gives the same messages and the same
// end (malformed or not) as read at once; what waits unread never exceeds one message; every
// message has a MID of 0 to 9999, revision 1 or more and at most 9979 bytes of data, and
// written again reads back the same.
#include "d_op_message.h"
#include "fuzz_check.h"

#include <QList>

namespace {

struct DOutcome {
    QList<DOpMessage> messages;
    bool malformed = false;
};

bool same(const DOpMessage& a, const DOpMessage& b)
{
    return a.mid() == b.mid() && a.revision() == b.revision() && a.data() == b.data();
}

void checkMessage(const DOpMessage& message)
{
    FUZZ_CHECK(message.mid() >= 0 && message.mid() <= 9999 && message.revision() >= 1);
    FUZZ_CHECK(message.data().size() <= DOpMessage::c_maxLength - DOpMessage::c_headerSize);
    const DOpMessage written(message.mid(), message.data());
    int offset = 0;
    DOpMessage again;
    QString error;
    FUZZ_CHECK(DOpMessage::read(written.bytes(), &offset, &again, &error) == DOpMessage::CeRead);
    FUZZ_CHECK(offset == written.bytes().size() && same(again, written) && again.revision() == 1);
}

DOutcome readInChunks(const QByteArray& stream, int chunk)
{
    DOutcome outcome;
    QByteArray buffer;
    for (int fed = 0; fed < stream.size(); fed += chunk) {
        buffer += stream.mid(fed, chunk);
        int offset = 0;
        DOpMessage message;
        QString error;
        for (;;) {
            const DOpMessage::EnRead read = DOpMessage::read(buffer, &offset, &message, &error);
            FUZZ_CHECK(offset <= buffer.size());
            if (read == DOpMessage::CeMalformed) {
                FUZZ_CHECK(!error.isEmpty());
                outcome.malformed = true;
                return outcome;
            }
            if (read == DOpMessage::CeIncomplete)
                break;
            checkMessage(message);
            outcome.messages << message;
        }
        buffer.remove(0, offset);
        FUZZ_CHECK(buffer.size() <= DOpMessage::c_maxLength);
    }
    return outcome;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    const QByteArray stream(reinterpret_cast<const char*>(data + 1), int(size - 1));
    const DOutcome chunked = readInChunks(stream, data[0] % 32 + 1);
    const DOutcome whole = readInChunks(stream, qMax(1, stream.size()));
    FUZZ_CHECK(chunked.malformed == whole.malformed && chunked.messages.size() == whole.messages.size());
    for (int i = 0; i < whole.messages.size(); ++i)
        FUZZ_CHECK(same(chunked.messages.at(i), whole.messages.at(i)));
    return 0;
}
