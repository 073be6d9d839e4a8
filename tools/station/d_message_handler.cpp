#include "d_message_handler.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QHash>
#include <QLoggingCategory>
#include <QMutex>
#include <QRegularExpression>
#include <QTimer>

#include <cstdio>

namespace {

constexpr qint64 c_repeatWindowMs = 1000;

QString& portPath()
{
    static QString path;
    return path;
}

// A log line that came again within the window: its last text and how often it was held back.
struct DRepeat {
    QElapsedTimer since;  // the window's start
    QString last;
    int held = 0;
};

QMutex& repeatsLock()
{
    static QMutex lock;
    return lock;
}

QHash<QString, DRepeat>& repeats()
{
    static QHash<QString, DRepeat> all;
    return all;
}

// The plug-in's critical lines carry a time stamp, a thread and an object before their text
// (fields cut by ";\t"), and the figures of the case: what repeats is the text, figures aside.
QString repeatKey(const QString& message)
{
    static const QRegularExpression figures(QStringLiteral("\\d+"));
    return message.section(QStringLiteral(";\t"), -1).replace(figures, QStringLiteral("#"));
}

QString countedLine(const DRepeat& repeat)
{
    return QStringLiteral("%1 (\u00d7%2 in the last second)")
        .arg(repeat.last.section(QStringLiteral(";\t"), -1).trimmed())
        .arg(repeat.held);
}

} // namespace

void DMessageHandler::install(bool verbose)
{
    if (!verbose)
        QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.info=false"));
    qInstallMessageHandler(&DMessageHandler::handle);
    qAddPostRoutine(&DMessageHandler::sayRepeats);
}

void DMessageHandler::setDevicePath(const QString& path) { portPath() = path; }

QString DMessageHandler::devicePath() { return portPath(); }

void DMessageHandler::say(const QString& message) { write(message); }

void DMessageHandler::say(const QString& message, const QString& check)
{
    write(check.isEmpty() ? message : message + QStringLiteral("; ") + check);
}

void DMessageHandler::write(const QString& line)
{
    std::fprintf(stderr, "%s: %s\n", qPrintable(QCoreApplication::applicationName()), qPrintable(line));
    std::fflush(stderr);
}

// The plug-in's critical lines open with a line break of their own layout; their text is kept.
// A --verbose trail of debug lines is left whole: it is asked for.
void DMessageHandler::handle(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    // A value logged in its debug form reads as the value: QVariant(QString, "abc") as "abc".
    static const QRegularExpression debugForm(
        QStringLiteral("QVariant\\((?:QString|int|uint|bool|double|qlonglong|qulonglong), ([^()]*)\\)"));
    if (type == QtDebugMsg || type == QtInfoMsg || !collapsed(message))
        write(QString(message).replace(debugForm, QStringLiteral("\\1")).trimmed());
}

// The first of a kind is written whole; the same again within a second is counted and said
// once when the second is over, so that a stream of junk bytes cannot flood the terminal.
bool DMessageHandler::collapsed(const QString& message)
{
    QMutexLocker locker(&repeatsLock());
    DRepeat& repeat = repeats()[repeatKey(message)];
    if (repeat.since.isValid() && repeat.since.elapsed() < c_repeatWindowMs) {
        repeat.last = message;
        if (repeat.held++ == 0 && QCoreApplication::instance())
            QTimer::singleShot(int(c_repeatWindowMs - repeat.since.elapsed()), Qt::PreciseTimer,
                               QCoreApplication::instance(), &DMessageHandler::sayRepeats);
        return true;
    }
    repeat.since.start();
    return false;
}

// Says the counts held back (a window is over, or the program ends) and opens new windows.
void DMessageHandler::sayRepeats()
{
    QStringList lines;
    {
        QMutexLocker locker(&repeatsLock());
        for (DRepeat& repeat : repeats()) {
            if (repeat.held == 0)
                continue;
            lines << countedLine(repeat);
            repeat.held = 0;
            repeat.since.start();
        }
    }
    for (const QString& line : lines)
        write(line);
}
