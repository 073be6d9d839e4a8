#include "d_pty_device.h"

#include <QSocketNotifier>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

DPtyDevice::~DPtyDevice() { close(); }

bool DPtyDevice::open(QString* error)
{
    m_master = ::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
    const char* name = m_master >= 0 && ::grantpt(m_master) == 0 && ::unlockpt(m_master) == 0
                           ? ::ptsname(m_master) : nullptr;
    m_slave = name ? ::open(name, O_RDWR | O_NOCTTY) : -1;
    termios settings{};
    if (m_slave < 0 || ::tcgetattr(m_slave, &settings) != 0) {
        *error = QString::fromLocal8Bit(std::strerror(errno));
        return false;
    }
    ::cfmakeraw(&settings);
    ::tcsetattr(m_slave, TCSANOW, &settings);
    m_slavePath = QString::fromLocal8Bit(name);
    m_notifier = new QSocketNotifier(m_master, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &DPtyDevice::onReadable);
    return true;
}

QString DPtyDevice::slavePath() const { return m_slavePath; }

bool DPtyDevice::write(const QByteArray& bytes)
{
    return m_master >= 0 && ::write(m_master, bytes.constData(), size_t(bytes.size())) == bytes.size();
}

QByteArray DPtyDevice::received() const { return m_received; }

void DPtyDevice::close()
{
    delete m_notifier;
    m_notifier = nullptr;
    for (int* fd : {&m_master, &m_slave}) {
        if (*fd >= 0)
            ::close(*fd);
        *fd = -1;
    }
}

void DPtyDevice::onReadable()
{
    char buffer[256];
    ssize_t count = 0;
    while ((count = ::read(m_master, buffer, sizeof buffer)) > 0)
        m_received.append(buffer, int(count));
}
