#ifndef D_OP_MESSAGE_H
#define D_OP_MESSAGE_H

#include <QByteArray>
#include <QString>

// One Open Protocol message: a 20-byte ASCII header (length, MID, revision, the no-ack flag,
// then ids we ignore), its data and a NUL. Read liberally (NULs between messages, headers padded
// past 20 bytes with spaces, a blank revision), written exactly by the published layout.
class DOpMessage
{
public:
    enum EnRead { CeIncomplete, CeRead, CeMalformed };
    static constexpr int c_headerSize = 20;
    static constexpr int c_maxLength = 9999;

    DOpMessage() = default;
    DOpMessage(int mid, const QByteArray& data, int revision = 1);

    int mid() const { return m_mid; }
    // 1 for a blank or "000" revision, as the protocol says.
    int revision() const { return m_revision; }
    // Header byte 12 is '1': the subscriber will not acknowledge what it asked to be pushed.
    bool noAck() const { return m_noAck; }
    QByteArray data() const { return m_data; }
    // The data without the spaces that padded headers and right-aligned numbers leave around it.
    QByteArray trimmedData() const { return m_data.trimmed(); }

    // Reads the message that starts at `*offset` of `buffer` (NULs before it are skipped).
    // CeRead: `*message` is filled and `*offset` is past its NUL. CeIncomplete: `*offset` is past
    // the NULs only. CeMalformed: `*error` says what is wrong; the rest of the stream is lost.
    static EnRead read(const QByteArray& buffer, int* offset, DOpMessage* message, QString* error);

    // Header (bytes 12-20 spaces), data, NUL.
    QByteArray bytes() const;

private:
    int m_mid = 0;
    int m_revision = 1;
    bool m_noAck = false;
    QByteArray m_data;
};

#endif // D_OP_MESSAGE_H
