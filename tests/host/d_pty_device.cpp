#include "d_pty_device.h"

bool DPtyDevice::open(QString* error)
{
    QObject::connect(&m_terminal, &DPseudoTerminal::sigBytesReceived, &m_terminal,
                     [this](const QByteArray& bytes) { m_received.append(bytes); });
    return m_terminal.open(error);
}

QString DPtyDevice::slavePath() const { return m_terminal.slavePath(); }

bool DPtyDevice::write(const QByteArray& bytes) { return m_terminal.write(bytes) == bytes.size(); }

QByteArray DPtyDevice::received() const { return m_received; }

void DPtyDevice::close() { m_terminal.close(); }
