#ifndef D_STAND_IN_TOOLS_H
#define D_STAND_IN_TOOLS_H

#include <QDir>
#include <QProcess>
#include <QTest>
#include <QTemporaryDir>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

// bluetoothctl and rfcomm played by stand-in.sh from a folder of the test's own, put
// first on PATH (the real stdbuf and timeout stay). Each run is noted in "calls".
class DStandInTools
{
public:
    struct DCall {
        qint64 ms;
        qint64 pid;
        QString line;  // what started it, then its command line: "timeout bluetoothctl trust 00:..."
    };

    DStandInTools()
    {
        for (const char* tool : {"bluetoothctl", "rfcomm"})
            QFile::link(QStringLiteral(HYTORC_STAND_IN), m_dir.filePath(tool));
        QDir(m_dir.path()).mkdir("play");
        for (const char* file : {"bus", "calls"})
            QFile(m_dir.filePath(file)).open(QIODevice::WriteOnly);
    }
    ~DStandInTools()
    {
        if (m_lock >= 0 && QFileInfo(c_rfcomm).isSymLink())
            QFile::remove(c_rfcomm);
        ::close(m_lock);
        m_bus.terminate(), m_bus.waitForFinished(5000);
    }

    QString dir() const { return m_dir.path(); }
    // Once a tool is taken away, PATH holds only this folder: the system's own is not found either.
    QByteArray pathVariable() const { return dir().toLocal8Bit() + (m_alone ? "" : ':' + qgetenv("PATH")); }
    void remove(const QString& tool) { m_alone = QFile::remove(m_dir.filePath(tool)); }

    // What `tool` does for `verb` ("bluetoothctl", "trust"), for one address or (empty) all.
    void play(const QString& tool, const QString& verb, const QByteArray& script, const QString& mac = QString())
    {
        QFile file(m_dir.filePath("play/" + tool + '-' + verb + (mac.isEmpty() ? "" : '-' + mac)));
        file.open(QIODevice::WriteOnly);
        file.write(script + '\n');
    }
    // Success words as bluetoothctl prints them; bind links /dev/rfcomm0 to `target`, never over a real device.
    void playNormalRoad(const QString& target)
    {
        play("bluetoothctl", "power", "echo 'Changing power on succeeded'");
        play("bluetoothctl", "trust", "echo \"Changing $mac trust succeeded\"");
        play("bluetoothctl", "connect", "echo \"[CHG] Device $mac Connected: yes\"; echo 'Connection successful'");
        play("rfcomm", "release", "[ -L /dev/rfcomm0 ] && rm /dev/rfcomm0");
        play("rfcomm", "bind", "[ -e /dev/rfcomm0 ] && [ ! -L /dev/rfcomm0 ] || ln -sfn " + target.toLocal8Bit() + " /dev/rfcomm0");
    }

    QList<DCall> calls(const QString& containing = QString()) const
    {
        QFile file(m_dir.filePath("calls"));
        file.open(QIODevice::ReadOnly);
        QList<DCall> calls;
        for (const QString& line : QString::fromLocal8Bit(file.readAll()).split('\n', Qt::SkipEmptyParts)) {
            if (line.contains(containing))
                calls.append({line.section(' ', 0, 0).toLongLong(), line.section(' ', 1, 1).toLongLong(), line.section(' ', 2)});
        }
        return calls;
    }

    // A system bus of the test's own at dir()/bus, where no bluetooth service answers, until the end.
    bool startSystemBus()
    {
        QFile::remove(m_dir.filePath("bus"));
        QFile config(m_dir.filePath("bus.conf"));
        config.open(QIODevice::WriteOnly);
        config.write("<busconfig><type>system</type><listen>unix:path=" + m_dir.filePath("bus").toUtf8() + "</listen>"
                     "<policy context='default'><allow user='*'/><allow send_destination='*'/>"
                     "<allow receive_sender='*'/><allow own='*'/></policy></busconfig>");
        config.close();
        m_bus.start("dbus-daemon", {"--nofork", "--config-file=" + config.fileName()});
        return QTest::qWaitFor([this] { return QFile::exists(m_dir.filePath("bus")); }, 5000);
    }

    // Serialises the use of /dev/rfcomm0 across the machine; false when it is a real device.
    bool lockRfcomm()
    {
        m_lock = ::open("/tmp/hytorc-rfcomm0.lock", O_CREAT | O_RDWR | O_CLOEXEC, 0666);
        ::flock(m_lock, LOCK_EX);
        return !QFileInfo(c_rfcomm).exists() || QFileInfo(c_rfcomm).isSymLink();
    }

private:
    const QString c_rfcomm = QStringLiteral("/dev/rfcomm0");
    QTemporaryDir m_dir;
    int m_lock = -1;
    QProcess m_bus;
    bool m_alone = false;
};

#endif // D_STAND_IN_TOOLS_H
