#include "d_op_message.h"

#include <cstring>

namespace {

constexpr int c_lengthDigits = 4;
constexpr int c_midOffset = 4;
constexpr int c_revisionOffset = 8;
constexpr int c_revisionDigits = 3;
constexpr int c_noAckOffset = 11;

// The value of `count` ASCII digits, or -1 when one is not a digit.
int digits(const char* text, int count)
{
    int value = 0;
    for (int i = 0; i < count; ++i) {
        if (text[i] < '0' || text[i] > '9')
            return -1;
        value = value * 10 + (text[i] - '0');
    }
    return value;
}

// Three spaces or "000" mean revision 1.
int revisionOf(const char* text)
{
    if (std::memcmp(text, "   ", c_revisionDigits) == 0)
        return 1;
    const int revision = digits(text, c_revisionDigits);
    return revision == 0 ? 1 : revision;
}

QString printable(const char* text, int count)
{
    QString shown;
    for (int i = 0; i < count; ++i)
        shown += text[i] >= ' ' && text[i] < 0x7f ? QChar::fromLatin1(text[i]) : QChar(u'.');
    return shown;
}

} // namespace

DOpMessage::DOpMessage(int mid, const QByteArray& data, int revision)
    : m_mid(mid)
    , m_revision(revision)
    , m_data(data)
{
}

DOpMessage::EnRead DOpMessage::read(const QByteArray& buffer, int* offset, DOpMessage* message, QString* error)
{
    while (*offset < buffer.size() && buffer.at(*offset) == '\0')
        ++*offset;
    const char* start = buffer.constData() + *offset;
    const int available = buffer.size() - *offset;
    if (available < c_lengthDigits)
        return CeIncomplete;
    const int length = digits(start, c_lengthDigits);
    if (length < c_headerSize) {
        *error = QStringLiteral("bad length \"%1\"").arg(printable(start, c_lengthDigits));
        return CeMalformed;
    }
    // A NUL inside the length ends the message early: no need to wait for the rest.
    if (std::memchr(start, '\0', size_t(qMin(available, length))) != nullptr) {
        *error = QStringLiteral("message ends before its length %1").arg(length);
        return CeMalformed;
    }
    if (available < length + 1)
        return CeIncomplete;
    const int mid = digits(start + c_midOffset, c_lengthDigits);
    const int revision = revisionOf(start + c_revisionOffset);
    if (mid < 0 || revision < 0) {
        *error = QStringLiteral("bad MID or revision \"%1\"").arg(printable(start + c_midOffset, 7));
        return CeMalformed;
    }
    if (start[length] != '\0') {
        *error = QStringLiteral("message not ended where its length %1 says").arg(length);
        return CeMalformed;
    }
    message->m_mid = mid;
    message->m_revision = revision;
    message->m_noAck = start[c_noAckOffset] == '1';
    message->m_data = QByteArray(start + c_headerSize, length - c_headerSize);
    *offset += length + 1;
    return CeRead;
}

QByteArray DOpMessage::bytes() const
{
    QByteArray bytes = QByteArray::number(c_headerSize + m_data.size()).rightJustified(c_lengthDigits, '0');
    bytes += QByteArray::number(m_mid).rightJustified(c_lengthDigits, '0');
    bytes += QByteArray::number(m_revision).rightJustified(c_revisionDigits, '0');
    bytes += QByteArray(c_headerSize - c_midOffset - c_lengthDigits - c_revisionDigits, ' ');
    bytes += m_data;
    bytes += '\0';
    return bytes;
}
