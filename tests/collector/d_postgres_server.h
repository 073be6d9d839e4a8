#ifndef D_POSTGRES_SERVER_H
#define D_POSTGRES_SERVER_H

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>

#include <pwd.h>
#include <signal.h>
#include <unistd.h>

// Debian's PostgreSQL 15 in a cluster of the test's own (initdb in a temporary folder), reached
// by a socket in that folder only. PostgreSQL refuses root: as root the cluster belongs to the
// postgres system user. Stopped by its process id; started again on the same socket and data.
class DPostgresServer
{
public:
    static QString binaries() { return QStringLiteral("/usr/lib/postgresql/15/bin"); }
    static bool available() { return QFile::exists(binaries() + QStringLiteral("/initdb")); }

    // `durable`: each commit waits for the disk, as a plant's server does (the tests need not).
    explicit DPostgresServer(bool durable = false)
        : m_durable(durable)
    {
        QTcpServer probe;  // a port number free on this machine names the socket
        probe.listen(QHostAddress::LocalHost);
        m_port = probe.serverPort();
        const passwd* owner = ::geteuid() == 0 ? ::getpwnam("postgres") : nullptr;
        if (owner && ::chown(qPrintable(m_dir.path()), owner->pw_uid, owner->pw_gid) != 0)
            owner = nullptr;
        m_user = owner ? QStringLiteral("postgres") : QString();
    }
    ~DPostgresServer() { stop(); }

    bool initialise() { return runAsOwner(binaries() + "/initdb -A trust -U hytorc -D " + data()) == 0; }
    // False when it does not accept connections within 30 s.
    bool start()
    {
        const QString options = QStringLiteral("-k %1 -c listen_addresses= -p %2 -c fsync=%3")
                                    .arg(m_dir.path()).arg(m_port).arg(m_durable ? "on" : "off");
        return runAsOwner(binaries() + "/pg_ctl -w -t 30 -l " + m_dir.filePath("log") + " -D " + data() + " -o '" + options + "' start") == 0;
    }
    void stop()
    {
        QFile pidFile(data() + QStringLiteral("/postmaster.pid"));
        if (!pidFile.open(QIODevice::ReadOnly))
            return;
        const pid_t pid = pid_t(pidFile.readLine().trimmed().toInt());
        if (pid <= 0 || ::kill(pid, SIGINT) != 0)  // SIGINT: PostgreSQL's fast shutdown
            return;
        QTest::qWaitFor([pid] { return ::kill(pid, 0) != 0; }, 30000);
    }
    QString connInfo(const QString& database = QStringLiteral("postgres")) const
    {
        return QStringLiteral("host=%1 port=%2 user=hytorc dbname=%3").arg(m_dir.path()).arg(m_port).arg(database);
    }
    // psql's answer to one statement, unaligned, no headers.
    QByteArray query(const QString& sql, const QString& database = QStringLiteral("postgres")) const
    {
        QProcess psql;
        psql.start(binaries() + QStringLiteral("/psql"), {"-XAtq", "-d", connInfo(database), "-c", sql});
        psql.waitForFinished(30000);
        return psql.readAllStandardOutput().trimmed();
    }

private:
    QString data() const { return m_dir.filePath(QStringLiteral("data")); }
    int runAsOwner(const QString& command) const
    {
        QProcess shell;
        shell.setProcessChannelMode(QProcess::ForwardedChannels);
        if (m_user.isEmpty())
            shell.start(QStringLiteral("sh"), {"-c", command});
        else
            shell.start(QStringLiteral("su"), {m_user, "-s", "/bin/sh", "-c", command});
        return shell.waitForFinished(60000) ? shell.exitCode() : -1;
    }

    bool m_durable;
    QTemporaryDir m_dir;
    quint16 m_port = 0;
    QString m_user;
};

#endif // D_POSTGRES_SERVER_H
