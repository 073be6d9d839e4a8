#include "d_stand_in_tools.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {
const QString c_rfcomm = QStringLiteral("/dev/rfcomm0");
} // namespace

DStandInTools::DStandInTools()
{
    for (const char* tool : {"bluetoothctl", "rfcomm"})
        QFile::link(QStringLiteral(HYTORC_STAND_IN), m_dir.filePath(QLatin1String(tool)));
    QDir(m_dir.path()).mkdir(QStringLiteral("play"));
    QFile(m_dir.filePath(QStringLiteral("bus"))).open(QIODevice::WriteOnly);
    QFile(m_dir.filePath(QStringLiteral("calls"))).open(QIODevice::WriteOnly);
}

DStandInTools::~DStandInTools()
{
    if (m_lock < 0)
        return;
    if (QFileInfo(c_rfcomm).isSymLink())
        QFile::remove(c_rfcomm);
    ::close(m_lock);
}

QByteArray DStandInTools::pathVariable() const
{
    return m_dir.path().toLocal8Bit() + (m_alone ? QByteArray() : ':' + qgetenv("PATH"));
}

void DStandInTools::play(const QString& tool, const QString& verb, const QByteArray& script, const QString& mac)
{
    QFile file(m_dir.filePath(QStringLiteral("play/%1-%2-%3").arg(tool, verb, mac)));
    if (mac.isEmpty())
        file.setFileName(file.fileName().chopped(1));
    file.open(QIODevice::WriteOnly);
    file.write(script + '\n');
}

void DStandInTools::playNormalRoad(const QString& target)
{
    play("bluetoothctl", "power", "echo 'Changing power on succeeded'");
    play("bluetoothctl", "trust", "echo \"Changing $mac trust succeeded\"");
    play("bluetoothctl", "connect", "echo \"[CHG] Device $mac Connected: yes\"; echo 'Connection successful'");
    play("rfcomm", "release", "[ -L /dev/rfcomm0 ] && rm /dev/rfcomm0");
    play("rfcomm", "bind", "[ -e /dev/rfcomm0 ] && [ ! -L /dev/rfcomm0 ] || ln -sfn " + target.toLocal8Bit()
                               + " /dev/rfcomm0");
}

void DStandInTools::remove(const QString& tool)
{
    QFile::remove(m_dir.filePath(tool));
    m_alone = true;
}

QList<DStandInTools::DCall> DStandInTools::calls(const QString& containing) const
{
    QFile file(m_dir.filePath(QStringLiteral("calls")));
    file.open(QIODevice::ReadOnly);
    QList<DCall> calls;
    for (const QByteArray& line : file.readAll().split('\n')) {
        const QList<QByteArray> words = line.split(' ');
        if (words.size() > 2 && line.contains(containing.toLocal8Bit()))
            calls.append({words.at(0).toLongLong(), words.at(1).toLongLong(),
                          QString::fromLocal8Bit(line.mid(words.at(0).size() + words.at(1).size() + 2))});
    }
    return calls;
}

bool DStandInTools::lockRfcomm()
{
    m_lock = ::open("/tmp/hytorc-rfcomm0.lock", O_CREAT | O_RDWR | O_CLOEXEC, 0666);
    ::flock(m_lock, LOCK_EX);
    const QFileInfo device(c_rfcomm);
    return !device.exists() || device.isSymLink();
}
