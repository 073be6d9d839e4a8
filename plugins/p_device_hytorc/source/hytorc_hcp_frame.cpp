#include "hytorc_hcp_frame.h"

#include "hytorc_hcp_constants.h"

#include <QRegularExpression>

#include <cstring>

// The line splitter: a payload is cut at every run of CR/LF, empty
// pieces are dropped. Built here, in the codec that the engine runs.
static const QRegularExpression c_lineSplitter(QStringLiteral("[\r\n]+"));

namespace {

inline quint8 byteAt(const char* data, int index)
{
    return static_cast<quint8>(data[index]);
}

// Length N of the frame whose header starts at data (at least 4 bytes readable).
inline int frameLength(const char* data)
{
    return ((byteAt(data, 2) & 0x03) << 8) | byteAt(data, 3);
}

// True for the white space that QString::trimmed() removes, restricted to ASCII.
inline bool isAsciiSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

} // namespace

QByteArray HytorcHcpFrame::encodeFrame(quint8 linkFlags, quint8 frameFlags, const QByteArray& payload)
{
    const int n = payload.size();
    QByteArray frame;
    frame.resize(n + c_overhead);
    char* out = frame.data();
    out[0] = 0x00;
    out[1] = static_cast<char>(linkFlags);
    out[2] = static_cast<char>((frameFlags & ~0x03) | ((n >> 8) & 0x03));
    out[3] = static_cast<char>(n & 0xFF);
    if (n > 0)
        std::memcpy(out + c_headerSize, payload.constData(), static_cast<size_t>(n));
    quint32 sum = 0;
    for (int i = 0; i < n + c_headerSize; ++i)
        sum += byteAt(out, i);
    const quint16 checksum = static_cast<quint16>(0u - sum);
    out[n + c_headerSize] = static_cast<char>(checksum >> 8);
    out[n + c_headerSize + 1] = static_cast<char>(checksum & 0xFF);
    return frame;
}

QByteArray HytorcHcpFrame::buildFrame(const QByteArray& payload, bool flagCommand, bool flagLink, bool isLast,
                                      int sequence)
{
    quint8 frameFlags = c_dataFlag;
    if (isLast)
        frameFlags |= c_lastFlag;
    if (flagCommand)
        frameFlags |= c_commandFlag;
    frameFlags |= static_cast<quint8>((sequence & 0x03) << 4);
    return encodeFrame(flagLink ? c_linkFlag : 0x00, frameFlags, payload);
}

QByteArray HytorcHcpFrame::buildAckFrame()
{
    // One shared copy: every acknowledgement is the same six bytes.
    static const QByteArray ack = QByteArray::fromHex("00014800FFB7");
    return ack;
}

QByteArray HytorcHcpFrame::buildNackFrame()
{
    static const QByteArray nack = QByteArray::fromHex("00010800FFF7");
    return nack;
}

QVariantMap HytorcHcpFrame::parseFrame(const QByteArray& frame)
{
    QVariantMap map;
    map.insert(QStringLiteral("valid"), false);
    if (frame.size() < c_overhead)
        return map;
    const char* data = frame.constData();
    const int n = frameLength(data);
    const quint8 frameFlags = byteAt(data, 2);
    map.insert(QStringLiteral("isAck"), !(frameFlags & c_dataFlag) && (frameFlags & c_ackFlag));
    map.insert(QStringLiteral("isLast"), bool(frameFlags & c_lastFlag));
    map.insert(QStringLiteral("isToolInitiated"), bool(byteAt(data, 1) & c_toolInitiatedFlag));
    if (frame.size() < n + c_headerSize)
        return map;
    map.insert(QStringLiteral("payload"), frame.mid(c_headerSize, n));
    map.insert(QStringLiteral("valid"), true);
    return map;
}

bool HytorcHcpFrame::parseHeader(const QByteArray& frame, Header* header)
{
    if (frame.size() < c_headerSize || !header)
        return false;
    const char* data = frame.constData();
    header->linkFlags = byteAt(data, 1);
    header->frameFlags = byteAt(data, 2);
    header->length = frameLength(data);
    return true;
}

int HytorcHcpFrame::scanFrame(const char* data, int size, int* frameSize)
{
    *frameSize = 0;
    const void* hit = std::memchr(data, 0x00, static_cast<size_t>(size));
    if (!hit)
        return size;
    const int i = static_cast<int>(static_cast<const char*>(hit) - data);
    // A header cut short cannot be complete either: its frame ends at i + 6 or later.
    if (i + c_headerSize <= size) {
        const int e = i + frameLength(data + i) + c_overhead;
        if (e <= size)
            *frameSize = e - i;
    }
    return i;
}

void HytorcHcpFrame::extractFrames(QByteArray& buffer, const std::function<void(const QByteArray&)>& onFrame)
{
    // Extraction from the stream:
    // - fewer than 6 bytes: keep them all;
    // - no 0x00 from the current position: discard the whole buffer;
    // - a frame start whose frame is not complete yet: keep the bytes from it on;
    // - a complete frame: hand it over and go on while at least 6 bytes remain after it.
    // The bytes are read through a shallow copy so that the callback cannot pull them
    // from under the loop; the callback must not change `buffer` itself.
    const QByteArray work = buffer;
    const int size = work.size();
    const char* data = work.constData();
    int pos = 0;
    while (size - pos >= c_overhead) {
        int frameSize = 0;
        const int start = pos + scanFrame(data + pos, size - pos, &frameSize);
        if (frameSize == 0) {
            pos = start;
            break;
        }
        pos = start + frameSize;
        if (onFrame)
            onFrame(work.mid(start, frameSize));
    }
    if (pos > 0)
        buffer = work.mid(pos);
}

QStringList HytorcHcpFrame::payloadLines(const QByteArray& payload)
{
    const char* data = payload.constData();
    const void* nul = std::memchr(data, 0x00, static_cast<size_t>(payload.size()));
    const int size = nul ? static_cast<int>(static_cast<const char*>(nul) - data) : payload.size();

    QStringList lines;
    bool ascii = true;
    for (int i = 0; i < size; ++i) {
        if (static_cast<signed char>(data[i]) < 0) {
            ascii = false;
            break;
        }
    }
    if (ascii) {
        // Same result as the general road below: for ASCII text UTF-8 is Latin-1, the
        // splitter's characters are the bytes CR and LF, and trimming removes ASCII
        // white space only.
        int i = 0;
        while (i < size) {
            while (i < size && (data[i] == '\r' || data[i] == '\n'))
                ++i;
            int start = i;
            while (i < size && data[i] != '\r' && data[i] != '\n')
                ++i;
            int end = i;
            while (start < end && isAsciiSpace(data[start]))
                ++start;
            while (end > start && isAsciiSpace(data[end - 1]))
                --end;
            if (end > start)
                lines.append(QString::fromLatin1(data + start, end - start));
        }
        return lines;
    }

    const QStringList pieces = QString::fromUtf8(data, size).split(c_lineSplitter, Qt::SkipEmptyParts);
    for (const QString& piece : pieces) {
        const QString line = piece.trimmed();
        if (!line.isEmpty())
            lines.append(line);
    }
    return lines;
}

bool HytorcHcpFrame::judgeReplyLines(const QStringList& lines, const QString& request, QStringList* kept,
                                     QString* error)
{
    const QString echo = request.trimmed();
    for (const QString& raw : lines) {
        const QString line = raw.trimmed();
        if (line.isEmpty() || c_ignoredResponseLines.contains(line) || line == echo)
            continue;
        if (line == c_failed || (line.startsWith(c_errorCodePrefix) && line != c_errorCodeOk)) {
            if (error)
                *error = QStringLiteral("Tool returned error: ") + line;
            return false;
        }
        if (kept)
            kept->append(line);
    }
    return true;
}

QStringList HytorcHcpFrame::judgeEventLines(const QStringList& lines)
{
    static const QString hcd(QStringLiteral("HCD"));
    static const QString response(QStringLiteral("RESPONSE"));
    auto dropped = [](const QString& line) {
        return line.isEmpty() || line == hcd || line == response || line == c_errorCodeOk;
    };
    auto trimmedAlready = [](const QString& line) {
        return line.isEmpty() || (!line.at(0).isSpace() && !line.at(line.size() - 1).isSpace());
    };
    // Most event payloads keep every line: hand back the same list, shared.
    bool keepAll = true;
    for (const QString& line : lines) {
        if (!trimmedAlready(line) || dropped(line)) {
            keepAll = false;
            break;
        }
    }
    if (keepAll)
        return lines;
    QStringList kept;
    for (const QString& raw : lines) {
        const QString line = raw.trimmed();
        if (!dropped(line))
            kept.append(line);
    }
    return kept;
}
