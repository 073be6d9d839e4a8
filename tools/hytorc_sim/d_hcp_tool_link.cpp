#include "d_hcp_tool_link.h"

#include "d_frame_writer.h"
#include "d_sim_options.h"
#include "d_tool_request_handler.h"

namespace {

// Frames the host never acknowledges (it may not be listening) must not pile up.
const int c_maxAwaitedAcks = 64;
const QByteArray c_lineEnd("\r\n");

// The reply's lines spread evenly over at least `minFrames` payloads (as far as
// there are lines), a line never cut between two frames.
QQueue<QByteArray> splitReply(const QStringList& lines, int minFrames)
{
    const int frames = qBound(1, minFrames, qMax(1, lines.size()));
    QQueue<QByteArray> payloads;
    QByteArray current;
    for (int i = 0; i < lines.size(); ++i) {
        const QByteArray line = lines.at(i).toUtf8() + c_lineEnd;
        const bool nextGroup = i > 0 && i * frames / lines.size() != (i - 1) * frames / lines.size();
        const bool full = current.size() + line.size() > HytorcHcpFrame::c_maxPayload;
        if (!current.isEmpty() && (nextGroup || full)) {
            payloads.enqueue(current);
            current.clear();
        }
        current += line;
    }
    payloads.enqueue(current);
    return payloads;
}

const char* frameKind(const HytorcHcpFrame::Header& header)
{
    if (!header.isData())
        return header.isAck() ? "ACK" : "NACK";
    if (header.isLink())
        return header.isCommand() ? "keep-alive" : "link header";
    return "request";
}

}  // namespace

DHcpToolLink::DHcpToolLink(DFrameWriter* writer, DToolRequestHandler* handler, const DSimOptions& options,
                           QObject* parent)
    : QObject(parent),
      m_writer(writer),
      m_handler(handler),
      m_options(options),
      m_headersToIgnore(options.ignoreHeaders),
      m_dropArmed(options.dropAfterFrames > 0)
{
    m_replyTimer.setSingleShot(true);
    m_replyTimer.setInterval(options.replyDelayMs);
    connect(&m_replyTimer, &QTimer::timeout, this, &DHcpToolLink::onReplyDue);
}

void DHcpToolLink::reset()
{
    m_received.clear();
    forgetTransaction();
    m_framesReceived = 0;
    m_halted = false;
}

void DHcpToolLink::feed(const QByteArray& bytes)
{
    m_received += bytes;
    HytorcHcpFrame::extractFrames(m_received, [this](const QByteArray& frame) { onFrame(frame); });
}

int DHcpToolLink::sendEvent(const QByteArray& payload)
{
    if (m_halted)
        return 0;
    return sendData(HytorcHcpFrame::encodeFrame(HytorcHcpFrame::c_linkFlag | HytorcHcpFrame::c_toolInitiatedFlag,
                                         HytorcHcpFrame::c_dataFlag | HytorcHcpFrame::c_lastFlag, payload),
             "event", false);
}

void DHcpToolLink::onFrame(const QByteArray& frame)
{
    HytorcHcpFrame::Header header;
    if (m_halted || !HytorcHcpFrame::parseHeader(frame, &header))
        return;
    trace("rx", frameKind(header), frame);
    if (m_dropArmed && ++m_framesReceived >= m_options.dropAfterFrames) {
        m_dropArmed = false;
        m_halted = true;
        qInfo("dropping the link after %d frames", m_framesReceived);
        emit sigDropRequested();
        return;
    }
    if (m_options.silent)
        return;
    if (!header.isData())
        onControlFrame(header);
    else if (header.isLink() && header.isCommand())
        sendControl(HytorcHcpFrame::buildNackFrame(), "NACK");
    else if (header.isLink())
        onHeader();
    else
        onRequestFrame(header, frame.mid(HytorcHcpFrame::c_headerSize, header.length));
}

void DHcpToolLink::onControlFrame(const HytorcHcpFrame::Header& header)
{
    if (!header.isAck() || m_awaitedAcks.isEmpty())
        return;
    if (m_awaitedAcks.dequeue() && !m_replyPayloads.isEmpty())
        sendNextReplyFrame();
}

void DHcpToolLink::onHeader()
{
    if (m_headersToIgnore > 0) {
        --m_headersToIgnore;
        qInfo("link header ignored (%d more to ignore)", m_headersToIgnore);
        return;
    }
    forgetTransaction();
    sendControl(HytorcHcpFrame::buildAckFrame(), "ACK");
}

void DHcpToolLink::onRequestFrame(const HytorcHcpFrame::Header& header, const QByteArray& payload)
{
    m_request += payload;
    m_requestSequence = header.sequence();
    sendControl(HytorcHcpFrame::buildAckFrame(), "ACK");
    if (!header.isLast())
        return;
    const QStringList reply = m_handler->answer(m_request);
    m_replyPayloads = splitReply(reply, m_options.replyFrames);
    qInfo("request \"%s\": %d reply lines in %d frames, ending \"%s\"",
          qPrintable(QString::fromUtf8(m_request.trimmed()).replace(QLatin1String("\r\n"), QLatin1String("\\r\\n"))),
          int(reply.size()), int(m_replyPayloads.size()), qPrintable(reply.constLast()));
    m_request.clear();
    emit sigRequestAcknowledged();
    m_replyTimer.start();
}

void DHcpToolLink::onReplyDue()
{
    if (m_options.junkBeforeReply)
        m_writer->writeJunkBurst();
    sendNextReplyFrame();
}

void DHcpToolLink::forgetTransaction()
{
    m_request.clear();
    m_replyPayloads.clear();
    m_awaitedAcks.clear();
    m_replyTimer.stop();
}

void DHcpToolLink::sendNextReplyFrame()
{
    const QByteArray payload = m_replyPayloads.dequeue();
    if (m_options.endlessReply)
        m_replyPayloads.enqueue(payload);
    const bool last = m_replyPayloads.isEmpty();
    const quint8 flags = HytorcHcpFrame::c_dataFlag | quint8(m_requestSequence << 4)
                         | (last ? HytorcHcpFrame::c_lastFlag : quint8(0));
    sendData(HytorcHcpFrame::encodeFrame(0, flags, payload), "reply", !last);
}

void DHcpToolLink::sendControl(const QByteArray& frame, const char* what)
{
    trace("tx", what, frame);
    m_writer->writeFrame(frame);
}

int DHcpToolLink::sendData(const QByteArray& frame, const char* what, bool releasesReply)
{
    trace("tx", what, frame);
    const int copies = m_writer->writeFrame(frame);
    m_awaitedAcks.enqueue(releasesReply);
    for (int copy = 1; copy < copies; ++copy)
        m_awaitedAcks.enqueue(false);
    while (m_awaitedAcks.size() > c_maxAwaitedAcks)
        m_awaitedAcks.dequeue();
    return copies;
}

void DHcpToolLink::trace(const char* direction, const char* what, const QByteArray& frame) const
{
    if (m_options.verbose)
        qInfo("%s %s: %s", direction, what, frame.toHex(' ').constData());
}
