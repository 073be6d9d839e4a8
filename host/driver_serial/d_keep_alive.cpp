#include "d_keep_alive.h"

#include "d_serial_link.h"

DKeepAlive::DKeepAlive(DSerialLink* link, std::function<bool()> transactionInFlight, QObject* parent)
    : QObject(parent)
    , m_link(link)
    , m_transactionInFlight(std::move(transactionInFlight))
{
    m_silence.setSingleShot(true);
    connect(&m_silence, &QTimer::timeout, this, &DKeepAlive::onSilence);
    connect(m_link, &DSerialLink::sigBytesRead, this, &DKeepAlive::onActivity);
    connect(m_link, &DSerialLink::sigBytesWritten, this, &DKeepAlive::onActivity);
    connect(m_link, &DSerialLink::sigPortStateChanged, this, &DKeepAlive::onPortStateChanged);
}

void DKeepAlive::configure(const QByteArray& frame, const QByteArray& responseFrame, const QByteArray& ackFrame,
                           int silenceMs)
{
    m_frame = frame;
    m_responseFrame = responseFrame;
    m_ackFrame = ackFrame;
    m_silence.setInterval(silenceMs);
    onPortStateChanged();
}

QByteArray DKeepAlive::filter(const QByteArray& chunk)
{
    QByteArray data = m_held + chunk;
    m_held.clear();
    // While a transaction runs, every byte is the transaction's.
    if (!m_awaitingResponse || m_transactionInFlight())
        return data;
    const int at = data.indexOf(m_responseFrame);
    if (at < 0)
        return holdAnswerStart(data);
    m_awaitingResponse = false;
    if (!m_ackFrame.isEmpty())
        m_link->write(m_ackFrame, nullptr);
    return data.remove(at, m_responseFrame.size());
}

// The port hands over what it has read so far: at 115200 baud the six bytes of the
// answer may come in two reads.
QByteArray DKeepAlive::holdAnswerStart(QByteArray data)
{
    for (int n = qMin(m_responseFrame.size() - 1, data.size()); n > 0; --n) {
        if (data.endsWith(m_responseFrame.left(n))) {
            m_held = data.right(n);
            data.chop(n);
            break;
        }
    }
    return data;
}

void DKeepAlive::onActivity()
{
    if (m_link->isOpen() && !m_frame.isEmpty())
        m_silence.start();
}

// Opened or closed, a new link: no heartbeat pending, the silence counts from now.
void DKeepAlive::onPortStateChanged()
{
    m_awaitingResponse = false;
    m_held.clear();
    m_silence.stop();
    onActivity();
}

// A heartbeat never cuts into a transaction: wait a whole period again instead.
void DKeepAlive::onSilence()
{
    if (m_transactionInFlight()) {
        m_silence.start();
        return;
    }
    m_awaitingResponse = !m_responseFrame.isEmpty();
    m_link->write(m_frame, nullptr);
}

