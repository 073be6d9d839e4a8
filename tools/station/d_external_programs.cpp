#include "d_external_programs.h"

#include "d_descendant_processes.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QFileInfo>
#include <QHash>
#include <QRegularExpression>
#include <QStandardPaths>

#include <algorithm>

namespace {

constexpr int c_graceMs = 1000;
const QString c_defaultBus = QStringLiteral("/run/dbus/system_bus_socket");
const QString c_checkTool = QStringLiteral("is the tool switched on, in range and free of another host?");
const QString c_checkService = QStringLiteral("is the bluetooth service running?");
constexpr int c_busAnswerMs = 1000;

// The programs that do the work; `timeout` and `stdbuf` only wrap them.
const QStringList c_workers{QStringLiteral("bluetoothctl"), QStringLiteral("rfcomm")};

QStringList programsOf(const QString& command)
{
    static const QHash<QString, QStringList> programs{
        {QStringLiteral("startDetection"), {"bluetoothctl", "stdbuf"}},
        {QStringLiteral("searchAndConnect"), {"bluetoothctl", "timeout", "rfcomm"}},
    };
    return programs.value(command);
}

// The steps of the Bluetooth commands, told by the program each one runs (without the
// wrappers `timeout` and `stdbuf`); a scan of searchAndConnect comes before a trust retried.
struct DStep {
    const char* command;
    const char* program;  // how the program's command line starts
    int number;
    const char* doing;
    const char* wait;
};
const DStep c_steps[] = {
    {"startDetection", "bluetoothctl devices", 1, "listing the known devices", "up to 2 s"},
    {"startDetection", "bluetoothctl --timeout 10 scan", 2, "scanning for tools", "10 s"},
    {"searchAndConnect", "bluetoothctl remove", 1, "forgetting an earlier pairing", "a moment"},
    {"searchAndConnect", "bluetoothctl power", 2, "powering the adapter on", "a moment"},
    {"searchAndConnect", "bluetoothctl --timeout 10 scan", 3, "scanning before trusting again", "10 s"},
    {"searchAndConnect", "bluetoothctl trust", 3, "trusting the tool", "up to 10 s"},
    {"searchAndConnect", "bluetoothctl connect", 4, "connecting to the tool", "up to 15 s"},
    {"searchAndConnect", "rfcomm release", 5, "releasing /dev/rfcomm0", "a moment"},
    {"searchAndConnect", "rfcomm bind", 6, "binding /dev/rfcomm0 to the tool", "a moment"},
};

int stepCount(const QString& command)
{
    int count = 0;
    for (const DStep& step : c_steps)
        count = command == QLatin1String(step.command) ? std::max(count, step.number) : count;
    return count;
}

QString packageOf(const QString& program)
{
    return c_workers.contains(program) ? QStringLiteral("bluez") : QStringLiteral("coreutils");
}

const QString c_serviceOnBus =
    QStringLiteral("the bluetooth service is on the system bus: is an adapter there and powered (bluetoothctl show)?");

// What a program that waits for bluetoothd should have checked: the service's name on the
// system bus, when the bus answers; the question alone when it does not.
QString serviceCheck()
{
    QDBusMessage ask = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"),
                                                      QStringLiteral("/org/freedesktop/DBus"),
                                                      QStringLiteral("org.freedesktop.DBus"), QStringLiteral("NameHasOwner"));
    ask << QStringLiteral("org.bluez");
    const QDBusMessage answer = QDBusConnection::systemBus().call(ask, QDBus::Block, c_busAnswerMs);
    if (answer.type() != QDBusMessage::ReplyMessage)
        return c_checkService;
    return answer.arguments().value(0).toBool()
        ? c_serviceOnBus
        : QStringLiteral("the bluetooth service (org.bluez) is not on the system bus: start it (service bluetooth start)");
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

QString DExternalPrograms::bluetoothServiceMissing()
{
    const QString check = serviceCheck();
    return check == c_serviceOnBus || check == c_checkService ? QString() : check;
}

bool DExternalPrograms::runsPrograms(const QString& command)
{
    return !programsOf(command).isEmpty();
}

QString DExternalPrograms::runningProgram() const
{
    return DDescendantProcesses::runningProgram(m_spared, c_workers);
}

QString DExternalPrograms::stepOf(const QString& command, const QString& program)
{
    for (const DStep& step : c_steps) {
        if (command == QLatin1String(step.command) && program.startsWith(QLatin1String(step.program)))
            return QStringLiteral("%1: step %2 of %3, %4 (%5): %6")
                .arg(command)
                .arg(step.number)
                .arg(stepCount(command))
                .arg(QLatin1String(step.doing), program, QLatin1String(step.wait));
    }
    return QString();
}

QString DExternalPrograms::stuckMessage(double seconds) const
{
    const QString program = runningProgram();
    if (program.isEmpty())
        return QString();
    // A trust or connect that does not end waits for the tool; the rest (a scan bounded by
    // its own --timeout included) for bluetoothd.
    const bool waitsForTool = program.contains(QRegularExpression(QStringLiteral("^bluetoothctl (trust|connect)")));
    return QStringLiteral("%1 did not answer in %2 s: %3")
        .arg(program, QString::number(seconds), waitsForTool ? c_checkTool : serviceCheck());
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
