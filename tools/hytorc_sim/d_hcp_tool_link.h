#ifndef D_HCP_TOOL_LINK_H
#define D_HCP_TOOL_LINK_H

#include <QByteArray>
#include <QObject>
#include <QQueue>
#include <QTimer>

#include "hytorc_hcp_frame.h"

class DFrameWriter;
class DSimOptions;
class DToolRequestHandler;

// The tool's side of the HCP-e exchange: acknowledges the link header and the
// request, answers the keep-alive with a refusal frame, sends the reply frame by
// frame (each next one after the host's acknowledgement) and sends events unasked.
class DHcpToolLink : public QObject
{
    Q_OBJECT

public:
    DHcpToolLink(DFrameWriter* writer, DToolRequestHandler* handler, const DSimOptions& options,
                 QObject* parent = nullptr);

    // A fresh port: forget every byte, pending reply and counter of the previous one.
    void reset();
    void feed(const QByteArray& bytes);
    // Sends a tool-initiated event payload; returns how many copies went out.
    int sendEvent(const QByteArray& payload);

signals:
    // The frame count of --drop-after is reached; nothing more is read until reset().
    void sigDropRequested();
    // A request has been acknowledged and its reply is not sent yet.
    void sigRequestAcknowledged();

private slots:
    void onReplyDue();

private:
    void onFrame(const QByteArray& frame);
    void onControlFrame(const HytorcHcpFrame::Header& header);
    void onHeader();
    void onRequestFrame(const HytorcHcpFrame::Header& header, const QByteArray& payload);
    void forgetTransaction();
    void sendNextReplyFrame();
    void sendControl(const QByteArray& frame, const char* what);
    // Writes a data frame; when `releasesReply`, the host's acknowledgement of it lets
    // the next reply frame go.
    int sendData(const QByteArray& frame, const char* what, bool releasesReply);
    void trace(const char* direction, const char* what, const QByteArray& frame) const;

    DFrameWriter* m_writer;
    DToolRequestHandler* m_handler;
    const DSimOptions& m_options;

    QByteArray m_received;
    QByteArray m_request;
    int m_requestSequence = 0;
    QQueue<QByteArray> m_replyPayloads;
    // One entry per data frame written and not yet acknowledged, oldest first: whether
    // its acknowledgement releases the next reply frame.
    QQueue<bool> m_awaitedAcks;
    QTimer m_replyTimer;
    int m_headersToIgnore = 0;
    int m_framesReceived = 0;
    bool m_dropArmed;  // the drop happens once, on the first port only
    bool m_halted = false;
};

#endif // D_HCP_TOOL_LINK_H
