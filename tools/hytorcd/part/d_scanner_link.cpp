#include "d_scanner_link.h"

#include "d_message_handler.h"
#include "d_station_part.h"

namespace {

constexpr int c_retryMs = 2000;

QString partKey(int part) { return QStringLiteral("scanner_part%1").arg(part); }

} // namespace

QList<DStationConfig::DKey> DScannerLink::configKeys()
{
    QList<DStationConfig::DKey> keys{
        {QStringLiteral("scanner"), QString(), QStringLiteral("the path of the scanner's serial port"),
         [](const QString& text) { return !text.trimmed().isEmpty(); },
         QStringLiteral("The barcode scanner's serial port (or pseudo-terminal): each line read is an identifier.")}};
    for (int part = 2; part <= DStationPart::c_identifierParts; ++part)
        keys.append({partKey(part), QString(), QStringLiteral("a regular expression"),
                     [](const QString& text) { return QRegularExpression(text).isValid(); },
                     QStringLiteral("A scanned code that matches this regular expression becomes identifier part %1.").arg(part)});
    return keys;
}

DScannerLink::DScannerLink(DStationPart* part, QObject* parent)
    : QObject(parent)
    , m_part(part)
{
    m_retry.setSingleShot(true);
    connect(&m_retry, &QTimer::timeout, this, &DScannerLink::open);
    connect(&m_port, &QSerialPort::readyRead, this, &DScannerLink::onReadable);
    connect(&m_port, &QSerialPort::errorOccurred, this, &DScannerLink::onError);
}

void DScannerLink::configure(const DStationConfig& config)
{
    m_path = config.value(QStringLiteral("scanner")).trimmed();
    for (int part = 2; part <= DStationPart::c_identifierParts; ++part)
        m_patterns.append(QRegularExpression(config.value(partKey(part))));
}

void DScannerLink::start()
{
    if (!m_path.isEmpty())
        open();
}

void DScannerLink::open()
{
    m_port.setPortName(m_path);
    if (!m_port.open(QIODevice::ReadOnly)) {
        if (!m_absentSaid)
            DMessageHandler::say(QStringLiteral("scanner %1: cannot open it (%2); check its cable, tried again every %3 s")
                                     .arg(m_path, m_port.errorString()).arg(c_retryMs / 1000));
        m_absentSaid = true;
        m_retry.start(c_retryMs);
        return;
    }
    m_port.setBaudRate(QSerialPort::Baud9600);
    m_absentSaid = false;
    m_pending.clear();
    m_overlong = false;
    DMessageHandler::say(QStringLiteral("scanner %1: reading codes").arg(m_path));
}

void DScannerLink::onReadable()
{
    for (const char byte : m_port.readAll()) {
        if (byte != '\r' && byte != '\n') {
            if (m_pending.size() < c_maxLineBytes)
                m_pending.append(byte);
            else
                m_overlong = true;
            continue;
        }
        if (m_overlong)
            DMessageHandler::say(QStringLiteral("scanner %1: a line longer than %2 bytes dropped (noise, or not a "
                                                "scanner in serial mode?)").arg(m_path).arg(c_maxLineBytes));
        else if (!m_pending.isEmpty())
            takeLine(m_pending);
        m_pending.clear();
        m_overlong = false;
    }
}

void DScannerLink::takeLine(const QByteArray& line)
{
    int part = 1;
    const QString code = QString::fromLatin1(line.constData(), line.size());  // a NUL too, to be refused
    for (int i = 0; i < m_patterns.size() && part == 1; ++i) {
        if (!m_patterns.at(i).pattern().isEmpty() && m_patterns.at(i).match(code).hasMatch())
            part = i + 2;
    }
    QString error;
    if (!m_part->identify(part, code, QStringLiteral("the scanner"), &error))
        DMessageHandler::say(QStringLiteral("scanner %1: %2").arg(m_path, error));
}

void DScannerLink::onError(QSerialPort::SerialPortError error)
{
    if (error == QSerialPort::NoError || !m_port.isOpen())
        return;
    lose(error == QSerialPort::ResourceError ? QStringLiteral("the port hung up or vanished: unplugged?") : m_port.errorString());
}

// Unplugged (the port vanished or hung up): one line, then tried again until it is back.
void DScannerLink::lose(const QString& reason)
{
    m_port.close();
    DMessageHandler::say(QStringLiteral("scanner %1: lost (%2); tried again every %3 s").arg(m_path, reason).arg(c_retryMs / 1000));
    m_absentSaid = true;
    m_retry.start(c_retryMs);
}
