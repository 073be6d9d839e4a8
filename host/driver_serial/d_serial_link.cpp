#include "d_serial_link.h"

#include "d_serial_settings.h"

DSerialLink::DSerialLink(QObject* parent)
    : QObject(parent)
{
    connect(&m_port, &QSerialPort::readyRead, this, &DSerialLink::onReadyRead);
    connect(&m_port, &QSerialPort::errorOccurred, this, &DSerialLink::onErrorOccurred);
}

bool DSerialLink::open(const DSerialSettings& settings, QString* error)
{
    close(QStringLiteral("reopened on %1").arg(settings.devicePath()));
    m_devicePath = settings.devicePath();
    m_port.clearError();
    settings.applyTo(&m_port);
    if (!m_port.open(QIODevice::ReadWrite)) {
        *error = portError();
        return false;
    }
    emit sigPortStateChanged(true, m_devicePath);
    return true;
}

void DSerialLink::close(const QString& reason)
{
    if (m_port.isOpen())
        m_port.flush();
    shutDown(reason);
}

bool DSerialLink::isOpen() const { return m_port.isOpen(); }

bool DSerialLink::write(const QByteArray& bytes, QString* error)
{
    QString failure;
    if (!m_port.isOpen())
        failure = QStringLiteral("Serial port not open");
    else if (m_port.write(bytes) != bytes.size())
        failure = portError();
    if (!failure.isEmpty()) {
        if (error)
            *error = failure;
        return false;
    }
    emit sigBytesWritten(bytes);
    return true;
}

void DSerialLink::onReadyRead()
{
    const QByteArray bytes = m_port.readAll();
    if (!bytes.isEmpty())
        emit sigBytesRead(bytes);
}

// A device that vanishes shows up as a resource error, or as a read error on a
// hung-up line; after the latter errno is stale, so the cause is named here.
void DSerialLink::onErrorOccurred(QSerialPort::SerialPortError error)
{
    if (!m_port.isOpen() || (error != QSerialPort::ResourceError && error != QSerialPort::ReadError))
        return;
    const QString cause = error == QSerialPort::ResourceError ? m_port.errorString() : QStringLiteral("line hung up");
    shutDown(QStringLiteral("%1: device lost (%2)").arg(m_devicePath, cause));
    emit sigPortLost(m_devicePath, cause);
}

void DSerialLink::shutDown(const QString& reason)
{
    if (!m_port.isOpen())
        return;
    m_port.close();
    emit sigPortStateChanged(false, reason);
}

// QSerialPort's words for a port locked by another process name no one to blame.
QString DSerialLink::portError() const
{
    if (m_port.error() == QSerialPort::PermissionError
        && m_port.errorString() == QLatin1String("Permission error while locking the device"))
        return QStringLiteral("%1 is in use by another program").arg(m_devicePath);
    return QStringLiteral("%1: %2").arg(m_devicePath, m_port.errorString());
}
