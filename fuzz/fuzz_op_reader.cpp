// libFuzzer target: the Open Protocol server's message reader on a client's byte stream.
// Input: byte 0 sets the size of the chunks (1 to 32 bytes) the rest arrives in, as a socket
// may cut it. Checked: read chunk by chunk, the stream gives the same messages and the same
// end (malformed or not) as read at once; what waits unread never exceeds one message; every
// message has a MID of 0 to 9999, revision 1 or more, and written again (at its revision,
// without the no-ack flag) reads back the same.
#include "d_op_message.h"
#include "fuzz_check.h"

#include <QStringList>

namespace {

// Each message as its revision and its bytes written again; "malformed" last when the stream was.
QList<QByteArray> readInChunks(const QByteArray& stream, int chunk)
{
    QList<QByteArray> outcome;
    QByteArray buffer;
    DOpMessage message;
    QString error;
    for (int fed = 0; fed < stream.size(); fed += chunk) {
        buffer += stream.mid(fed, chunk);
        int offset = 0;
        DOpMessage::EnRead read;
        while ((read = DOpMessage::read(buffer, &offset, &message, &error)) == DOpMessage::CeRead) {
            FUZZ_CHECK(message.mid() >= 0 && message.mid() <= 9999 && message.revision() >= 1);
            const QByteArray written = DOpMessage(message.mid(), message.data(), message.revision()).bytes();
            int again = 0;
            DOpMessage copy;
            FUZZ_CHECK(DOpMessage::read(written, &again, &copy, &error) == DOpMessage::CeRead);
            FUZZ_CHECK(again == written.size() && copy.bytes() == written && copy.revision() == message.revision()
                       && !copy.noAck());
            outcome << QByteArray::number(message.revision()) + written;
        }
        if (read == DOpMessage::CeMalformed) {
            FUZZ_CHECK(!error.isEmpty());
            return outcome << "malformed";
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
    FUZZ_CHECK(readInChunks(stream, data[0] % 32 + 1) == readInChunks(stream, qMax(1, stream.size())));
    return 0;
}
