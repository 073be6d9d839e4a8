#include "d_sim_host.h"

#include "hytorc_hcp_frame.h"

#include <QTest>

DSimHost::~DSimHost()
{
    m_port.close();
    if (m_process.state() != QProcess::NotRunning) {
        m_process.terminate();
        if (!m_process.waitForFinished(c_waitMs))
            m_process.kill();
        m_process.waitForFinished(c_waitMs);
    }
}

bool DSimHost::start(const QStringList& arguments)
{
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process.start(qEnvironmentVariable("HYTORC_BUILD_DIR") + "/bin/hytorc-sim", arguments);
    if (!QTest::qWaitFor([this] { return m_process.canReadLine(); }, c_waitMs))
        return false;
    m_printedPath = QString::fromLocal8Bit(m_process.readLine()).trimmed();
    return !m_printedPath.isEmpty();
}

bool DSimHost::openPort(const QString& path)
{
    m_port.close();
    m_buffer.clear();
    m_frames.clear();
    m_port.setPortName(path.isEmpty() ? m_printedPath : path);
    m_port.setBaudRate(QSerialPort::Baud115200);
    connect(&m_port, &QSerialPort::readyRead, this, &DSimHost::onReadyRead, Qt::UniqueConnection);
    return m_port.open(QIODevice::ReadWrite);
}

void DSimHost::send(const QByteArray& bytes)
{
    m_port.write(bytes);
    m_port.flush();
}

void DSimHost::sendHeader()
{
    send(HytorcHcpFrame::buildFrame("UIC\r\n", false, true, false, 0));
}

void DSimHost::sendRequest(const QByteArray& text)
{
    m_sequence = (m_sequence + 1) % 4;
    send(HytorcHcpFrame::buildFrame(text, true, false, true, m_sequence));
}

void DSimHost::sendAck()
{
    send(HytorcHcpFrame::buildAckFrame());
}

bool DSimHost::beginTransaction(const QByteArray& request)
{
    sendHeader();
    if (nextFrame() != HytorcHcpFrame::buildAckFrame())
        return false;
    sendRequest(request);
    return nextFrame() == HytorcHcpFrame::buildAckFrame();
}

void DSimHost::say(const QByteArray& line)
{
    m_process.write(line + "\n");
}

QByteArray DSimHost::nextFrame(int timeoutMs)
{
    if (!QTest::qWaitFor([this] { return !m_frames.isEmpty(); }, timeoutMs))
        return QByteArray();
    return m_frames.dequeue();
}

bool DSimHost::quietFor(int ms)
{
    QTest::qWait(ms);
    return m_frames.isEmpty();
}

QStringList DSimHost::readReply(int* frames)
{
    QStringList lines;
    int count = 0;
    for (;;) {
        const QVariantMap frame = HytorcHcpFrame::parseFrame(nextFrame());
        if (!frame.value("valid").toBool())
            return lines << "(no frame)";
        ++count;
        lines += HytorcHcpFrame::payloadLines(frame.value("payload").toByteArray());
        sendAck();
        if (frame.value("isLast").toBool())
            break;
    }
    if (frames)
        *frames = count;
    return lines;
}

void DSimHost::onReadyRead()
{
    const QByteArray bytes = m_port.readAll();
    m_raw += bytes;
    m_buffer += bytes;
    HytorcHcpFrame::extractFrames(m_buffer, [this](const QByteArray& frame) { m_frames.enqueue(frame); });
}
