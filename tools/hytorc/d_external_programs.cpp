#include "d_external_programs.h"

#include "d_descendant_processes.h"

#include <QFileInfo>
#include <QHash>
#include <QStandardPaths>

namespace {

constexpr int c_graceMs = 1000;
const QString c_defaultBus = QStringLiteral("/run/dbus/system_bus_socket");

QStringList programsOf(const QString& command)
{
    static const QHash<QString, QStringList> programs{
        {QStringLiteral("startDetection"), {"bluetoothctl", "stdbuf"}},
        {QStringLiteral("searchAndConnect"), {"bluetoothctl", "timeout", "rfcomm"}},
    };
    return programs.value(command);
}

QString packageOf(const QString& program)
{
    return program == QLatin1String("bluetoothctl") || program == QLatin1String("rfcomm") ? QStringLiteral("bluez")
                                                                                          : QStringLiteral("coreutils");
}

// bluetoothctl aborts at once without a system bus; a "unix:path=" address is checked for.
QString systemBusPath()
{
    const QString address = qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS");
    if (address.isEmpty())
        return c_defaultBus;
    const QString prefix = QStringLiteral("unix:path=");
    return address.startsWith(prefix) ? address.mid(prefix.size()).section(QLatin1Char(','), 0, 0) : QString();
}

} // namespace

void DExternalPrograms::spare(qint64 pid)
{
    m_spared.insert(pid);
}

QString DExternalPrograms::missingFor(const QStringList& commands) const
{
    bool usesBluetooth = false;
    for (const QString& command : commands) {
        for (const QString& program : programsOf(command)) {
            if (QStandardPaths::findExecutable(program).isEmpty())
                return QStringLiteral("%1 not found on PATH: install the %2 package (bash scripts/setup.sh)")
                    .arg(program, packageOf(program));
            usesBluetooth = true;
        }
    }
    const QString bus = systemBusPath();
    if (usesBluetooth && !bus.isEmpty() && !QFileInfo::exists(bus))
        return QStringLiteral("no system bus at %1: bluetoothctl cannot reach the bluetooth service; "
                              "start it (service dbus start; service bluetooth start)").arg(bus);
    return QString();
}

QString DExternalPrograms::stuckMessage(double seconds) const
{
    const QString program = DDescendantProcesses::runningProgram(m_spared);
    if (program.isEmpty())
        return QString();
    const QString verb = program.section(QLatin1Char(' '), 1, 1);
    const bool waitsForTool = verb == QLatin1String("trust") || verb == QLatin1String("connect");
    return QStringLiteral("%1 did not answer in %2 s: %3")
        .arg(program, QString::number(seconds),
             waitsForTool ? QStringLiteral("is the tool switched on, in range and free of another host?")
                          : QStringLiteral("is the bluetooth service running?"));
}

void DExternalPrograms::endLeftovers() const
{
    DDescendantProcesses::endAll(m_spared, c_graceMs);
}
