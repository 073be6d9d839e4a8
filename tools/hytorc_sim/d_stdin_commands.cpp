#include "d_stdin_commands.h"

#include <QHash>
#include <QSocketNotifier>

#include <unistd.h>

DStdinCommands::DStdinCommands(QObject* parent)
    : QObject(parent), m_notifier(new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this))
{
    connect(m_notifier, &QSocketNotifier::activated, this, &DStdinCommands::onReadable);
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
    static const QHash<QByteArray, EnCommand> commands{{"event", CeEvent}, {"quiet", CeQuiet}, {"drop", CeDrop}, {"quit", CeQuit}};
    if (line.isEmpty())
        return;
    if (!commands.contains(line)) {
        qWarning("unknown input \"%s\" (event, quiet, drop, quit)", line.constData());
        return;
    }
    emit sigCommand(commands.value(line));
}
