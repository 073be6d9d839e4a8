#include "hytorc_hcp_comm.h"

#include "hytorc_hcp_constants.h"
#include "hytorc_hcp_frame.h"
#include "utilities.h"

#include <QDebug>
#include <QThread>

namespace {

constexpr int c_headerDelayMs = 200;     // sendRequest -> first header
constexpr int c_headerAckMs = 3000;      // state 1: waiting for the header's ACK
constexpr int c_requestAckMs = 4000;     // state 2: waiting for the request's ACK
constexpr int c_replyFrameMs = 8000;     // state 3: waiting for each reply frame
constexpr int c_maxRetries = 5;          // header resends per transaction
constexpr int c_maxRawBuffer = 65536;    // bytes kept unframed at most; also the most reply bytes
constexpr int c_rawBufferCapacity = 2048; // memory kept for rawBuffer (two longest frames)
constexpr int c_maxEventLines = 100;     // event lines kept at most
constexpr double c_junkRatio = 0.85;     // share of 0x00/0xFF bytes that makes a chunk junk
constexpr int c_junkMinLength = 6;       // chunks of this length or less are never junk

// Source path and line numbers printed in the critical log lines.
const char* const c_logSource = "plugins/p_device_hytorc/source/hytorc_hcp_comm";
constexpr int c_logLineJunk = 67;
constexpr int c_logLineOverflow = 75;

enum EnState { CeIdle = 0, CeHeaderSent = 1, CeRequestSent = 2, CeAwaitingReply = 3 };

} // namespace

HytorcHcpComm::HytorcHcpComm(QObject* owner)
    : QObject(owner)
    , owner(owner)
    , retryTimer(this)
{
    // Keep the buffer's memory across purges and frames (capacity only; it starts empty).
    rawBuffer.reserve(c_rawBufferCapacity);
    retryTimer.setSingleShot(true);
    connect(&retryTimer, &QTimer::timeout, this, &HytorcHcpComm::onRetryTimeout);
}

void HytorcHcpComm::sendRequest(const QString& request)
{
    pendingRequest = request.trimmed() + QStringLiteral("\r\n");
    retryCount = 0;
    clearResponse();
    clearRawBuffer();
    sequence = (sequence + 1) % 4;
    // Not cancelled by reset(): the header goes out 200 ms later in any case.
    QTimer::singleShot(c_headerDelayMs, this, &HytorcHcpComm::sendUicHeader);
}

void HytorcHcpComm::reset()
{
    retryTimer.stop();
    state = CeIdle;
    sequence = 0;
    retryCount = 0;
    clearResponse();
    clearRawBuffer();
}

void HytorcHcpComm::sendUicHeader()
{
    if (!owner)
        return;
    state = CeHeaderSent;
    emit sigWriteRequest(HytorcHcpFrame::buildFrame(c_uicHeader, false, true, false, 0));
    retryTimer.start(c_headerAckMs);
}

void HytorcHcpComm::sendDataPayload()
{
    if (!owner)
        return;
    state = CeRequestSent;
    emit sigWriteRequest(HytorcHcpFrame::buildFrame(pendingRequest.toUtf8(), true, false, true, sequence));
    retryTimer.start(c_requestAckMs);
}

void HytorcHcpComm::onRetryTimeout()
{
    if (state == CeIdle)
        return;
    if (retryCount < c_maxRetries) {
        ++retryCount;
        sendUicHeader();
        return;
    }
    emit sigError(QStringLiteral("Tool communication timeout"));
}

void HytorcHcpComm::onRawData(const QByteArray& data, int number)
{
    if (number == lastChunkNumber && lastChunkNumber != -1)
        return;
    lastChunkNumber = number;
    const int length = data.size();
    if (length == 0)
        return;

    if (length > c_junkMinLength) {
        int saturation = 0;
        const uchar* bytes = reinterpret_cast<const uchar*>(data.constData());
        for (int i = 0; i < length; ++i)
            saturation += (bytes[i] == 0x00) | (bytes[i] == 0xFF);
        if (saturation >= c_junkRatio * length) {
            qCritical() << "\n" << getDate() << ";\t" << "Thread =" << QThread::currentThread() << ";\t"
                        << "This =" << this << ";\t" << c_logSource << ";\t" << c_logLineJunk << ";\t"
                        << "[HYTORC-COMM] Junk frame detected (Saturation" << saturation << "/" << length
                        << "). Purging buffer.";
            clearRawBuffer();
            emit sigJunkFrameDetected();
            return;
        }
    }

    const int total = (rawBuffer.size() - rawPos) + length;
    if (total > c_maxRawBuffer) {
        failOnOverflow(total);
        return;
    }

    rawBuffer.append(data);
    drainRawBuffer();
}

void HytorcHcpComm::failOnOverflow(int total)
{
    qCritical() << "\n" << getDate() << ";\t" << "Thread =" << QThread::currentThread() << ";\t"
                << "This =" << this << ";\t" << c_logSource << ";\t" << c_logLineOverflow << ";\t"
                << "[HYTORC-COMM] Raw buffer overflow" << total << ">" << c_maxRawBuffer;
    clearRawBuffer();
    emit sigError(QStringLiteral("Raw buffer overflow"));
}

void HytorcHcpComm::clearResponse()
{
    responseLines.clear();
    responseBytes = 0;
}

void HytorcHcpComm::clearRawBuffer()
{
    rawBuffer.resize(0); // keeps the reserved memory, unlike clear()
    rawPos = 0;
    ++rawEpoch;
}

void HytorcHcpComm::drainRawBuffer()
{
    // The stream extraction (HytorcHcpFrame::extractFrames), run in place on
    // rawBuffer. A slot connected to our signals may reset the engine or feed it a new
    // chunk while a frame is being handled:
    // - a reset (or purge) empties rawBuffer: the frames left in it are forgotten;
    // - a chunk fed meanwhile is appended behind the bytes of this pass and extracted
    //   in a second pass, as if it had come after this call returned.
    if (draining) {
        appendedWhileDraining = true;
        return;
    }
    draining = true;
    bool again = false;
    do {
        appendedWhileDraining = false;
        const quint64 epoch = rawEpoch;
        const int limit = rawBuffer.size();
        bool purged = false;
        while (limit - rawPos >= HytorcHcpFrame::c_overhead) {
            int frameSize = 0;
            const int start = rawPos + HytorcHcpFrame::scanFrame(rawBuffer.constData() + rawPos, limit - rawPos,
                                                                 &frameSize);
            if (frameSize == 0) {
                rawPos = start;
                break;
            }
            const QByteArray frame = rawBuffer.mid(start, frameSize);
            rawPos = start + frameSize;
            processFrame(frame);
            if (rawEpoch != epoch) {
                purged = true;
                break;
            }
        }
        if (!purged) {
            rawBuffer.remove(0, rawPos);
            rawPos = 0;
        }
        again = appendedWhileDraining || purged;
    } while (again);
    draining = false;
}

void HytorcHcpComm::processFrame(const QByteArray& frame)
{
    // Decoded as HytorcHcpFrame::parseFrame does, without building its map:
    // valid from 6 bytes on once the payload is complete; the payload is a view into
    // `frame`, which outlives this call.
    HytorcHcpFrame::Header header;
    if (frame.size() < HytorcHcpFrame::c_overhead || !HytorcHcpFrame::parseHeader(frame, &header)
        || frame.size() < header.length + HytorcHcpFrame::c_headerSize)
        return;

    if (header.isAck()) {
        if (state == CeHeaderSent) {
            retryTimer.stop();
            sendDataPayload();
        } else if (state == CeRequestSent) {
            retryTimer.stop();
            state = CeAwaitingReply;
            retryTimer.start(c_replyFrameMs);
        }
        return;
    }

    const QByteArray payload =
        QByteArray::fromRawData(frame.constData() + HytorcHcpFrame::c_headerSize, header.length);
    const bool isLast = header.isLast();

    if (header.isToolInitiated() || payload.startsWith(c_eventLogPrefix)) {
        emit sigWriteRequest(HytorcHcpFrame::buildAckFrame());
        const QStringList kept = HytorcHcpFrame::judgeEventLines(HytorcHcpFrame::payloadLines(payload));
        if (eventLines.isEmpty() && kept.size() <= c_maxEventLines) {
            eventLines = kept; // same lines, shared instead of copied one by one
        } else {
            for (const QString& line : kept) {
                if (eventLines.size() >= c_maxEventLines)
                    eventLines.removeFirst();
                eventLines.append(line);
            }
        }
        if (isLast) {
            QStringList complete;
            complete.swap(eventLines);
            emit sigEventReady(complete);
        }
        return;
    }

    if (state != CeAwaitingReply)
        return;

    // A tool that never marks a reply frame last must not grow us without end: the
    // reply is bounded like the raw buffer, and the frame past the bound is dropped.
    const int collected = responseBytes + payload.size();
    if (collected > c_maxRawBuffer) {
        clearResponse();
        failOnOverflow(collected);
        return;
    }
    responseBytes = collected;

    retryTimer.stop();
    emit sigWriteRequest(HytorcHcpFrame::buildAckFrame());
    QString error;
    if (!HytorcHcpFrame::judgeReplyLines(HytorcHcpFrame::payloadLines(payload), pendingRequest, &responseLines,
                                         &error)) {
        emit sigError(error);
        return;
    }
    if (isLast) {
        state = CeIdle;
        emit sigDataReady(responseLines);
    } else {
        retryTimer.start(c_replyFrameMs);
    }
}
