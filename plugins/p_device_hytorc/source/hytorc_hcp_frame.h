#ifndef HYTORC_HCP_FRAME_H
#define HYTORC_HCP_FRAME_H

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <functional>

// HCP-e frames: 00, link flags, frame flags with bits 9-8 of the payload length,
// bits 7-0 of the length, the payload, a 16-bit checksum (high byte first) that makes
// the whole frame sum to 0 modulo 65536. Used by both sides of the link: the engine
// (host side) and the tool simulator (tool side).
class HytorcHcpFrame
{
public:
    // Byte 1.
    static constexpr quint8 c_linkFlag = 0x01;
    static constexpr quint8 c_toolInitiatedFlag = 0x02;
    // Byte 2.
    static constexpr quint8 c_dataFlag = 0x80;
    static constexpr quint8 c_ackFlag = 0x40;
    static constexpr quint8 c_lastFlag = 0x08;
    static constexpr quint8 c_commandFlag = 0x04;
    static constexpr int c_headerSize = 4;
    static constexpr int c_overhead = 6;  // header and checksum
    static constexpr int c_maxPayload = 1023;

    // Every field of a frame header, for traces and for the tool side.
    struct Header {
        quint8 linkFlags = 0;
        quint8 frameFlags = 0;
        int length = 0;
        bool isData() const { return frameFlags & c_dataFlag; }
        bool isAck() const { return !isData() && (frameFlags & c_ackFlag); }
        bool isLast() const { return frameFlags & c_lastFlag; }
        bool isCommand() const { return frameFlags & c_commandFlag; }
        bool isLink() const { return linkFlags & c_linkFlag; }
        bool isToolInitiated() const { return linkFlags & c_toolInitiatedFlag; }
        int sequence() const { return (frameFlags >> 4) & 3; }
    };

    // Any frame: the length bits of byte 2 are filled from the payload (cut to 10 bits),
    // the checksum is appended.
    static QByteArray encodeFrame(quint8 linkFlags, quint8 frameFlags, const QByteArray& payload);
    // A host data frame (bit 7 of byte 2 set, tool-initiated bit clear).
    static QByteArray buildFrame(const QByteArray& payload, bool flagCommand, bool flagLink, bool isLast,
                                 int sequence);
    static QByteArray buildAckFrame();   // 00 01 48 00 FF B7
    static QByteArray buildNackFrame();  // 00 01 08 00 FF F7

    // {valid, isAck, isLast, isToolInitiated, payload}; the checksum is not checked.
    static QVariantMap parseFrame(const QByteArray& frame);
    // Header fields of the first four bytes; false when fewer than four.
    static bool parseHeader(const QByteArray& frame, Header* header);

    // Cuts every complete frame out of the front of `buffer`, in order, hands each to
    // `onFrame` and leaves in `buffer` only what may still become a frame.
    static void extractFrames(QByteArray& buffer, const std::function<void(const QByteArray&)>& onFrame);

    // Payload text up to the first NUL, split at CR/LF runs, each piece trimmed, empties dropped.
    static QStringList payloadLines(const QByteArray& payload);

    // Reply lines of a transaction for `request` (trimmed): framing words and the echo
    // are dropped, the rest appended to *kept. Returns false at the first tool error
    // line, with "Tool returned error: <line>" in *error.
    static bool judgeReplyLines(const QStringList& lines, const QString& request, QStringList* kept,
                                QString* error);
    // Event lines: only empties, "HCD", "RESPONSE" and "ERRORCODE,0" are dropped.
    static QStringList judgeEventLines(const QStringList& lines);

private:
    friend class HytorcHcpComm;
    // One step of extractFrames over `size` bytes at `data` (size >= 6): returns the
    // offset of the first 0x00 (or size when there is none) and sets *frameSize to
    // N + 6 when the frame starting there is complete, to 0 otherwise.
    static int scanFrame(const char* data, int size, int* frameSize);
};

#endif // HYTORC_HCP_FRAME_H
