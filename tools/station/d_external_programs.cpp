#include "d_external_programs.h"

#include "d_descendant_processes.h"

#include <QFileInfo>
#include <QHash>
#include <QRegularExpression>
#include <QStandardPaths>

namespace {

constexpr int c_graceMs = 1000;
const QString c_defaultBus = QStringLiteral("/run/dbus/system_bus_socket");
const QString c_checkTool = QStringLiteral("is the tool switched on, in range and free of another host?");
const QString c_checkService = QStringLiteral("is the bluetooth service running?");

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
    // A scan, trust or connect that does not end waits for the tool; the rest for bluetoothd.
    const bool waitsForTool = program.contains(QRegularExpression(QStringLiteral("^bluetoothctl .*(scan|trust|connect)")));
    return QStringLiteral("%1 did not answer in %2 s: %3")
        .arg(program, QString::number(seconds), waitsForTool ? c_checkTool : c_checkService);
}

QString DExternalPrograms::failureHint(const QString& command, const QVariantMap& results)
{
    if (command != QLatin1String("searchAndConnect") || !results.value(QStringLiteral("failed")).toBool())
        return QString();
    return QStringLiteral("searchAndConnect failed: %1 (bluetoothctl info ADDRESS tells more)").arg(c_checkTool);
}

void DExternalPrograms::endLeftovers() const
{
    DDescendantProcesses::endAll(m_spared, c_graceMs);
}
