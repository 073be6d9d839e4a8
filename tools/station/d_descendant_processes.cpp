#include "d_descendant_processes.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QThread>

#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct DStat {
    qint64 parent = 0;
    QString name;
};

QByteArray readProcFile(qint64 pid, const char* file)
{
    QFile f(QStringLiteral("/proc/%1/%2").arg(pid).arg(QLatin1String(file)));
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// "pid (name) state ppid ...": the name may hold blanks and parentheses, so cut at the last ')'.
bool readStat(qint64 pid, DStat* stat)
{
    const QByteArray text = readProcFile(pid, "stat");
    const int open = text.indexOf('(');
    const int close = text.lastIndexOf(')');
    if (open < 0 || close < open)
        return false;
    const QList<QByteArray> rest = text.mid(close + 2).split(' ');
    if (rest.size() < 2 || rest.at(0) == "Z")
        return false;  // a zombie runs nothing any more
    stat->name = QString::fromLocal8Bit(text.mid(open + 1, close - open - 1));
    stat->parent = rest.at(1).toLongLong();
    return true;
}

// A script runs as "/bin/sh /path/name args": its arguments start after its own path.
QStringList argumentsOf(qint64 pid, const QString& name)
{
    const QList<QByteArray> words = readProcFile(pid, "cmdline").split('\0');
    for (int i = 0; i < words.size(); ++i) {
        if (QFileInfo(QString::fromLocal8Bit(words.at(i))).fileName().startsWith(name)) {
            QStringList arguments;
            for (int j = i + 1; j < words.size(); ++j)
                if (!words.at(j).isEmpty())
                    arguments << QString::fromLocal8Bit(words.at(j));
            return arguments;
        }
    }
    return {};
}

} // namespace

bool DDescendantProcesses::becomeSubreaper()
{
    return prctl(PR_SET_CHILD_SUBREAPER, 1) == 0;
}

QList<DDescendantProcesses::DProcess> DDescendantProcesses::list(const QSet<qint64>& spared)
{
    QHash<qint64, QList<DProcess>> children;
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& entry : entries) {
        DStat stat;
        const qint64 pid = entry.toLongLong();
        if (pid > 0 && readStat(pid, &stat))
            children[stat.parent].append({pid, stat.name, {}});
    }
    QList<DProcess> found;
    QList<qint64> parents{qint64(getpid())};
    while (!parents.isEmpty()) {
        for (DProcess process : children.value(parents.takeFirst())) {
            if (spared.contains(process.pid))
                continue;
            process.arguments = argumentsOf(process.pid, process.program);
            found << process;
            parents << process.pid;
        }
    }
    return found;
}

QString DDescendantProcesses::runningProgram(const QSet<qint64>& spared, const QStringList& programs)
{
    for (const DProcess& process : list(spared)) {
        if (programs.contains(process.program))
            return (QStringList{process.program} + process.arguments).join(QLatin1Char(' '));
    }
    return QString();
}

int DDescendantProcesses::endAll(const QSet<qint64>& spared, int graceMs)
{
    const QList<DProcess> first = list(spared);
    for (const DProcess& process : first)
        ::kill(pid_t(process.pid), SIGTERM);
    const QDeadlineTimer deadline(graceMs);
    for (QList<DProcess> left = first; !left.isEmpty(); left = list(spared)) {
        if (deadline.hasExpired()) {
            for (const DProcess& process : left)
                ::kill(pid_t(process.pid), SIGKILL);
        }
        QThread::msleep(20);
    }
    // Those that had become our children wait as zombies until reaped.
    for (const DProcess& process : first)
        ::waitpid(pid_t(process.pid), nullptr, WNOHANG);
    return first.size();
}
