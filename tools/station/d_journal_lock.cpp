#include "d_journal_lock.h"

#include <QByteArray>
#include <QFile>
#include <QtGlobal>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

DJournalLock::~DJournalLock() { release(); }

// Close-on-exec: a program the service starts must not keep the journal locked after it.
bool DJournalLock::take(const QString& journalPath, QString* error)
{
    release();
    const QString path = journalPath + QStringLiteral(".lock");
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        *error = QStringLiteral("journal %1: cannot open its lock file %2 (%3)")
                     .arg(journalPath, path, QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        char pid[32] = {};
        const ssize_t size = ::pread(fd, pid, sizeof pid - 1, 0);
        ::close(fd);
        *error = QStringLiteral("journal %1 is in use by another hytorcd (pid %2, lock %3): stop it first, "
                                "or give this one another --journal")
                     .arg(journalPath, QString::fromLatin1(pid, int(qMax<ssize_t>(size, 0))).trimmed(), path);
        return false;
    }
    const QByteArray own = QByteArray::number(qint64(::getpid())) + '\n';
    // Without its pid the lock still holds; a second service then names none.
    if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, own.constData(), size_t(own.size()), 0) != own.size())
        qInfo("%s: cannot write this process's pid", qPrintable(path));
    m_fd = fd;
    return true;
}

void DJournalLock::release()
{
    if (m_fd < 0)
        return;
    ::close(m_fd);
    m_fd = -1;
}
