#include "d_pseudo_terminal.h"

#include <QFile>
#include <QFileInfo>
#include <QSocketNotifier>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace {

QString systemError(const char* what)
{
    return QStringLiteral("%1: %2").arg(QLatin1String(what), QString::fromLocal8Bit(std::strerror(errno)));
}

}  // namespace

DPseudoTerminal::DPseudoTerminal(QObject* parent) : QObject(parent)
{
}

DPseudoTerminal::~DPseudoTerminal()
{
    close();
}

bool DPseudoTerminal::open(QString* error)
{
    m_master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (m_master < 0) {
        *error = systemError("posix_openpt");
        return false;
    }
    if (grantpt(m_master) != 0 || unlockpt(m_master) != 0 || fcntl(m_master, F_SETFL, O_NONBLOCK) != 0) {
        *error = systemError("grantpt/unlockpt");
        close();
        return false;
    }
    if (!openSlave(error)) {
        close();
        return false;
    }
    m_notifier = new QSocketNotifier(m_master, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &DPseudoTerminal::onReadable);
    return true;
}

bool DPseudoTerminal::openSlave(QString* error)
{
    const char* name = ptsname(m_master);
    if (name == nullptr) {
        *error = systemError("ptsname");
        return false;
    }
    m_slavePath = QString::fromLocal8Bit(name);
    m_slave = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings;
    if (m_slave < 0 || tcgetattr(m_slave, &settings) != 0) {
        *error = systemError("opening the slave");
        return false;
    }
    // Raw bytes both ways: no echo, no line editing, no CR/LF translation.
    cfmakeraw(&settings);
    if (tcsetattr(m_slave, TCSANOW, &settings) != 0) {
        *error = systemError("tcsetattr");
        return false;
    }
    return true;
}

void DPseudoTerminal::close()
{
    delete m_notifier;
    m_notifier = nullptr;
    if (m_slave >= 0)
        ::close(m_slave);
    if (m_master >= 0)
        ::close(m_master);
    m_slave = -1;
    m_master = -1;
}

qint64 DPseudoTerminal::write(const QByteArray& bytes)
{
    if (m_master < 0)
        return -1;
    const ssize_t written = ::write(m_master, bytes.constData(), size_t(bytes.size()));
    if (written < 0 && (errno == EAGAIN || errno == EINTR))
        return 0;
    return written;
}

void DPseudoTerminal::onReadable()
{
    char buffer[4096];
    QByteArray received;
    ssize_t count = 0;
    while ((count = ::read(m_master, buffer, sizeof buffer)) > 0)
        received.append(buffer, int(count));
    if (count < 0 && errno != EAGAIN && errno != EINTR)
        qWarning("reading the port: %s", std::strerror(errno));
    if (!received.isEmpty())
        emit sigBytesReceived(received);
}

bool DPseudoTerminal::linkAt(const QString& linkPath, QString* error) const
{
    const QFileInfo link(linkPath);
    if (link.exists() && !link.isSymLink()) {
        *error = QStringLiteral("%1 exists and is not a symlink").arg(linkPath);
        return false;
    }
    const QByteArray path = QFile::encodeName(linkPath);
    const QByteArray aside = path + ".new" + QByteArray::number(qint64(getpid()));
    ::unlink(aside.constData());
    if (::symlink(QFile::encodeName(m_slavePath).constData(), aside.constData()) != 0
        || ::rename(aside.constData(), path.constData()) != 0) {
        *error = QStringLiteral("cannot point %1 to the port: %2").arg(linkPath, QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    return true;
}
