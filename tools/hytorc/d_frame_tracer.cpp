#include "d_frame_tracer.h"

#include "hytorc_hcp_frame.h"

#include <QStringList>

#include <cstdio>

namespace {

QString printable(const QByteArray& payload)
{
    QString text;
    for (char c : payload) {
        if (c == '\r')
            text += QLatin1String("\\r");
        else if (c == '\n')
            text += QLatin1String("\\n");
        else if (c >= 0x20 && c < 0x7F)
            text += QLatin1Char(c);
        else
            text += QStringLiteral("\\x%1").arg(quint8(c), 2, 16, QLatin1Char('0'));
    }
    return text;
}

QString flagWords(const HytorcHcpFrame::Header& h)
{
    QStringList words;
    words << (h.isData() ? QStringLiteral("data") : h.isAck() ? QStringLiteral("ACK") : QStringLiteral("NACK"));
    if (h.isLast())
        words << QStringLiteral("last");
    if (h.isCommand())
        words << QStringLiteral("cmd");
    if (h.isLink())
        words << QStringLiteral("link");
    if (h.isToolInitiated())
        words << QStringLiteral("tool-initiated");
    return words.join(QLatin1Char(','));
}

} // namespace

DFrameTracer::DFrameTracer(QObject* driver, QObject* parent)
    : QObject(parent)
{
    m_clock.start();
    connect(driver, SIGNAL(sigBytesWritten(QByteArray)), this, SLOT(onBytesWritten(QByteArray)));
    connect(driver, SIGNAL(sigBytesRead(QByteArray)), this, SLOT(onBytesRead(QByteArray)));
}

QString DFrameTracer::describe(double seconds, const QString& direction, const QByteArray& frame)
{
    HytorcHcpFrame::Header header;
    HytorcHcpFrame::parseHeader(frame, &header);
    const QByteArray payload = frame.mid(HytorcHcpFrame::c_headerSize, header.length);
    return QStringLiteral("%1 %2 %3 | %4 seq=%5 len=%6 \"%7\"")
        .arg(seconds, 8, 'f', 3)
        .arg(direction, QString::fromLatin1(frame.toHex(' ')), flagWords(header))
        .arg(header.sequence())
        .arg(header.length)
        .arg(printable(payload));
}

void DFrameTracer::onBytesWritten(const QByteArray& bytes)
{
    trace(m_toTool, bytes, QStringLiteral("host>tool"));
}

void DFrameTracer::onBytesRead(const QByteArray& bytes)
{
    trace(m_fromTool, bytes, QStringLiteral("tool>host"));
}

void DFrameTracer::trace(QByteArray& buffer, const QByteArray& bytes, const QString& direction)
{
    buffer.append(bytes);
    const double seconds = m_clock.elapsed() / 1000.0;
    HytorcHcpFrame::extractFrames(buffer, [&](const QByteArray& frame) {
        std::fprintf(stderr, "%s\n", qPrintable(describe(seconds, direction, frame)));
    });
    std::fflush(stderr);
}
