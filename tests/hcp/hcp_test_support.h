// Shared helpers of the HCP engine tests: tool-side frames and an engine under watch.
#ifndef HCP_TEST_SUPPORT_H
#define HCP_TEST_SUPPORT_H

#include "hytorc_hcp_comm.h"
#include "hytorc_hcp_frame.h"

#include <QSignalSpy>
#include <QtTest>

namespace hcptest {

inline QByteArray hex(const char* text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

// Frames the tool sends.
inline QByteArray ack() { return HytorcHcpFrame::buildAckFrame(); }
inline QByteArray nack() { return HytorcHcpFrame::buildNackFrame(); }
inline QByteArray reply(const QByteArray& payload, bool last)
{
    return HytorcHcpFrame::encodeFrame(0x00, HytorcHcpFrame::c_dataFlag | (last ? HytorcHcpFrame::c_lastFlag : 0),
                                       payload);
}
inline QByteArray toolEvent(const QByteArray& payload, bool last = true)
{
    return HytorcHcpFrame::encodeFrame(HytorcHcpFrame::c_toolInitiatedFlag,
                                       HytorcHcpFrame::c_dataFlag | (last ? HytorcHcpFrame::c_lastFlag : 0), payload);
}

inline QList<QByteArray> acks(int count)
{
    QList<QByteArray> list;
    for (int i = 0; i < count; ++i)
        list << ack();
    return list;
}

// Frames the host sends.
inline QByteArray header() { return hex("00 01 80 05 55 49 43 0D 0A FE 82"); }
inline QByteArray request(const QByteArray& text, int sequence)
{
    return HytorcHcpFrame::buildFrame(text, true, false, true, sequence);
}

// An engine owned by a plain object, every signal recorded.
class Engine
{
public:
    Engine()
        : owner(new QObject)
        , comm(new HytorcHcpComm(owner.data()))
        , writes(comm, &HytorcHcpComm::sigWriteRequest)
        , data(comm, &HytorcHcpComm::sigDataReady)
        , events(comm, &HytorcHcpComm::sigEventReady)
        , errors(comm, &HytorcHcpComm::sigError)
        , junk(comm, &HytorcHcpComm::sigJunkFrameDetected)
    {
    }

    // Feeds one chunk with the next chunk number.
    void feed(const QByteArray& bytes) { comm->onRawData(bytes, ++chunkNumber); }

    // Every write asked for since the last call, in order.
    QList<QByteArray> takeWrites()
    {
        QList<QByteArray> packets;
        for (const QList<QVariant>& args : writes)
            packets << args.at(0).toByteArray();
        writes.clear();
        return packets;
    }
    QStringList lastData() const { return data.isEmpty() ? QStringList() : data.last().at(0).toStringList(); }
    QStringList lastEvent() const { return events.isEmpty() ? QStringList() : events.last().at(0).toStringList(); }
    QString lastError() const { return errors.isEmpty() ? QString() : errors.last().at(0).toString(); }
    int signalCount() const { return writes.count() + data.count() + events.count() + errors.count() + junk.count(); }

    // The private timer slot, as if the retry timer had expired now.
    void expireTimer() { QVERIFY(QMetaObject::invokeMethod(comm, "onRetryTimeout", Qt::DirectConnection)); }

    // sendRequest and the header 200 ms later: state 1.
    bool toHeaderSent(const QByteArray& text = "GET ADMIN TOOL_INFO\r\n")
    {
        comm->sendRequest(QString::fromUtf8(text));
        if (!writes.isEmpty())
            return false;
        if (!writes.wait(1000) && writes.isEmpty())
            return false;
        return takeWrites() == QList<QByteArray>{header()};
    }
    // ... and the header's ACK: state 2.
    bool toRequestSent(const QByteArray& text = "GET ADMIN TOOL_INFO\r\n", int sequence = 1)
    {
        if (!toHeaderSent(text))
            return false;
        feed(ack());
        return takeWrites() == QList<QByteArray>{request(text.trimmed() + "\r\n", sequence)};
    }
    // ... and the request's ACK: state 3.
    bool toAwaitingReply(const QByteArray& text = "GET ADMIN TOOL_INFO\r\n", int sequence = 1)
    {
        if (!toRequestSent(text, sequence))
            return false;
        feed(ack());
        return writes.isEmpty();
    }

    QScopedPointer<QObject> owner;
    HytorcHcpComm* comm;
    QSignalSpy writes;
    QSignalSpy data;
    QSignalSpy events;
    QSignalSpy errors;
    QSignalSpy junk;
    int chunkNumber = 0;
};

} // namespace hcptest

#endif // HCP_TEST_SUPPORT_H
