#include "d_stdin_commands.h"

#include <QHash>
#include <QSocketNotifier>

#include <unistd.h>

DStdinCommands::DStdinCommands(QObject* parent)
    : QObject(parent), m_notifier(new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this))
{
    connect(m_notifier, &QSocketNotifier::activated, this, &DStdinCommands::onReadable);
}

// \xHH is that byte: a test sends NUL, noise or any code a terminal line cannot carry.
QByteArray DStdinCommands::unescaped(const QByteArray& text)
{
    QByteArray bytes;
    for (int i = 0; i < text.size(); ++i) {
        bool ok = false;
        const int byte = text.mid(i + 2, 2).toInt(&ok, 16);
        if (text.mid(i, 2) == "\\x" && ok && text.mid(i + 2, 2).size() == 2) {
            bytes.append(char(byte));
            i += 3;
        } else {
            bytes.append(text.at(i));
        }
    }
    return bytes;
}

void DStdinCommands::onReadable()
{
    char buffer[256];
    const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (count <= 0) {
        m_notifier->setEnabled(false);
        return;
    }
    m_pending.append(buffer, int(count));
    int end = 0;
    while ((end = m_pending.indexOf('\n')) >= 0) {
        takeLine(m_pending.left(end).trimmed());
        m_pending.remove(0, end + 1);
    }
}

void DStdinCommands::takeLine(const QByteArray& line)
{
    static const QHash<QByteArray, EnCommand> commands{{"event", CeEvent}, {"quiet", CeQuiet}, {"drop", CeDrop},
                                                       {"quit", CeQuit}, {"nok", CeNok}, {"unplug-scanner", CeUnplugScanner}};
    if (line.isEmpty())
        return;
    if (line.startsWith("scan ")) {
        emit sigScan(unescaped(line.mid(5)));
        return;
    }
    if (!commands.contains(line)) {
        qWarning("unknown input \"%s\" (event, nok, quiet, drop, quit, scan TEXT, unplug-scanner)", line.constData());
        return;
    }
    emit sigCommand(commands.value(line));
}
