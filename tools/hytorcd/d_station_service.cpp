#include "d_station_service.h"

#include "d_abstract_plugin.h"
#include "d_command_runner.h"
#include "d_external_programs.h"
#include "d_link_supervisor.h"
#include "d_message_handler.h"
#include "d_result_hold.h"
#include "d_result_journal.h"
#include "d_workstation.h"

#include <QRegularExpression>
#include <QtDebug>

namespace {

constexpr int c_maxBackoffSeconds = 30;
constexpr int c_stopGraceMs = 1500;
const QString c_listen = QStringLiteral("listenEventsData");
const QString c_currentProgId = QStringLiteral("currentProgId");
const QString c_unknownSerial = QStringLiteral("unknown");

} // namespace

QList<DStationConfig::DKey> DStationService::configKeys()
{
    const auto nonEmpty = [](const QString& text) { return !text.trimmed().isEmpty(); };
    return {
        {QStringLiteral("device"), QString(), QStringLiteral("the path of the tool's serial port"), nonEmpty,
         QStringLiteral("The tool's serial port (/dev/rfcomm0 for a bound Bluetooth tool).")},
        {QStringLiteral("bluetooth"), QString(), QStringLiteral("a Bluetooth address, as 00:1A:7D:DA:71:13"),
         [](const QString& text) { return QRegularExpression(QStringLiteral("^([0-9A-Fa-f]{2}:){5}[0-9A-Fa-f]{2}$")).match(text.trimmed()).hasMatch(); },
         QStringLiteral("The tool's Bluetooth address: searchAndConnect binds /dev/rfcomm0 to it.")},
        {QStringLiteral("journal"), QString(), QStringLiteral("the path of an SQLite file"), nonEmpty,
         QStringLiteral("The result journal. Default: /var/lib/hytorc/results.db as root, "
                        "$XDG_DATA_HOME/hytorc/results.db otherwise.")},
        {QStringLiteral("station"), QString(), QStringLiteral("a name of 1 to 25 characters"),
         [](const QString& text) { return !text.trimmed().isEmpty() && text.trimmed().size() <= 25; },
         QStringLiteral("The station's name in every result. Default: the host name.")},
        {QStringLiteral("hold"), QString::number(DResultHold::c_defaultLimit), QStringLiteral("a count, 1 to 1000000"),
         DStationConfig::integer(1, 1000000),
         QStringLiteral("Results held in memory while the journal refuses them (a full disk); past it the oldest are "
                        "kept and the loss is recorded.")},
    };
}

DStationService::DStationService(DWorkstation* workstation, DResultJournal* journal, const QString& station,
                                 QObject* parent)
    : QObject(parent)
    , m_workstation(workstation)
    , m_runner(workstation->runner())
    , m_device(workstation->device())
    , m_link(new DLinkSupervisor(workstation->router(), workstation->driver(), this))
    , m_journal(journal)
    , m_hold(new DResultHold(journal, station, this))
    , m_station(station)
{
    m_retry.setSingleShot(true);
    connect(&m_retry, &QTimer::timeout, this, &DStationService::connectLink);
    connect(m_link, &DLinkSupervisor::sigLinkLost, this, &DStationService::onLinkLost);
    connect(m_runner, &DCommandRunner::sigResultsUpdated, this, &DStationService::onResultsUpdated);
    connect(m_runner, &DCommandRunner::sigFinished, this, &DStationService::onFinished);
    connect(m_runner, &DCommandRunner::sigCommandError, this,
            [this](quint64 id, const QString& reason) { m_reasons.insert(id, reason); });
    connect(m_device, &DAbstractPlugin::sigPropertyChanged, this, [this](const QString& key, const QVariant& value) {
        if (key == c_currentProgId && m_state == CeListening)
            emit sigProgramSelected(value.toInt(), QDateTime::currentDateTimeUtc());
    });
}

DStationService::~DStationService() = default;

void DStationService::setHoldLimit(int limit) { m_hold->setLimit(limit); }

void DStationService::start(const QString& devicePath, const QString& bluetoothSerial)
{
    m_devicePath = devicePath;
    m_bluetoothSerial = bluetoothSerial;
    connectLink();
}

int DStationService::currentProgId() const
{
    return m_device->getProperty(c_currentProgId, static_cast<bool*>(nullptr)).toInt();
}

// A Bluetooth tool is bound and opened by searchAndConnect; a port is opened by the driver.
void DStationService::connectLink()
{
    setState(CeConnecting);
    if (!m_bluetoothSerial.isEmpty() && (m_devicePath.isEmpty() || m_link->isLost()))
        return searchAndConnect();
    QString error;
    if (m_link->open(m_devicePath, &error))
        identify();
    else
        waitAndRetry(error);
}

// Without the system's Bluetooth programs, bus or service, searchAndConnect would only wait for
// its timeout: said at once, as the command line says it, and tried again like any outage.
void DStationService::searchAndConnect()
{
    QString missing = DExternalPrograms().missingFor({QStringLiteral("searchAndConnect")});
    if (missing.isEmpty())
        missing = DExternalPrograms::bluetoothServiceMissing();
    if (!missing.isEmpty())
        return waitAndRetry(missing);
    runStep(QStringLiteral("searchAndConnect"), {{QStringLiteral("serialId"), m_bluetoothSerial}},
            [this](bool ok, const QVariantMap&) {
                if (ok)
                    identify();
                else
                    waitAndRetry(QStringLiteral("searchAndConnect %1 failed").arg(m_bluetoothSerial));
            });
}

void DStationService::identify()
{
    setState(CeIdentifying);
    runStep(QStringLiteral("getToolInfo"), {}, [this](bool ok, const QVariantMap& results) {
        if (!ok)
            return waitAndRetry(QStringLiteral("getToolInfo failed"));
        m_toolInfo = results.value(QStringLiteral("deviceInformation")).toMap();
        QString serial = m_toolInfo.value(QStringLiteral("serial")).toString().trimmed();
        if (serial.isEmpty())
            serial = c_unknownSerial;
        if (!m_toolSerial.isEmpty() && serial != m_toolSerial) {
            DMessageHandler::say(QStringLiteral("another tool on the port: %1, was %2").arg(serial, m_toolSerial));
            QString error;
            if (!m_journal->recordToolChange(m_station, m_toolSerial, serial, &error))
                DMessageHandler::say(error);
        }
        m_toolSerial = serial;
        runStep(QStringLiteral("listProgram"), {}, [this](bool ok, const QVariantMap& results) {
            if (!ok)
                return waitAndRetry(QStringLiteral("listProgram failed"));
            m_programs = results.value(QStringLiteral("programList")).toList();
            DMessageHandler::say(QStringLiteral("connected to %1 (%2 program(s))").arg(m_toolSerial).arg(m_programs.size()));
            emit sigToolIdentified();
            runStep(QStringLiteral("setKeepAliveFonction"), {}, [this](bool ok, const QVariantMap&) {
                if (!ok)
                    return waitAndRetry(QStringLiteral("setKeepAliveFonction failed"));
                startListening();
            });
        });
    });
}

void DStationService::startListening()
{
    QString error;
    m_listenRun = m_runner->start(m_device, c_listen, {}, &error);
    if (m_listenRun == 0)
        return waitAndRetry(QStringLiteral("%1: %2").arg(c_listen, error));
    m_backoffSeconds = 1;
    m_retrying = false;
    m_since = QDateTime::currentDateTimeUtc();
    setState(CeListening);
    runNextOrder();
}

// One command of the connection's road; `next` gets its outcome once it has finished.
void DStationService::runStep(const QString& name, const QVariantMap& arguments,
                              const std::function<void(bool, const QVariantMap&)>& next)
{
    QString error;
    const quint64 id = m_runner->start(m_device, name, arguments, &error);
    if (id == 0) {
        DMessageHandler::say(QStringLiteral("%1: %2").arg(name, error));
        next(false, {});
        return;
    }
    m_steps.insert(id, next);
}

void DStationService::onFinished(quint64 runId, const QString& name, bool ok, const QVariantMap& results)
{
    const QString reason = m_reasons.take(runId);
    if (runId == m_listenRun) {
        m_listenRun = 0;
        if (m_state == CeListening)
            waitAndRetry(QStringLiteral("%1 ended: %2").arg(name, reason));
        return;
    }
    const auto step = m_steps.take(runId);
    if (!step)
        return;
    const bool success = DWorkstation::commandSucceeded(ok, results);
    if (!success && !reason.isEmpty() && m_state != CeStopped)
        qInfo().noquote() << QStringLiteral("%1 failed: %2").arg(name, reason);
    step(success, results);
}

void DStationService::onResultsUpdated(quint64 runId, const QString&, const QVariantMap& changed)
{
    const QVariant event = changed.value(QStringLiteral("eventData"));
    if (runId != m_listenRun || !event.isValid())
        return;
    QVariantMap record = event.toMap();
    // A warning, so that a burst of copies is counted in one line. Compared before the stamp: the
    // tool's own fields alone say whether it is the same tightening.
    if (m_doubles.isDouble(record, QDateTime::currentMSecsSinceEpoch())) {
        qWarning("doubled report dropped: the same tightening came twice over the link");
        return;
    }
    // Stamped as it arrives: the part current when it was tightened, whenever the journal takes it.
    if (m_stamp)
        m_stamp(&record);
    journal(record);
}

// Committed before anything else hears of it; while the journal refuses, held in order, never dropped silently.
void DStationService::journal(const QVariantMap& record)
{
    m_hold->take(record, m_toolSerial);
}

void DStationService::onLinkLost()
{
    if (m_state == CeStopped)
        return;
    if (m_listenRun)
        m_runner->finish(m_listenRun);
    m_backoffSeconds = 1;
    waitAndRetry(QString());
}

// The first retry after a change of state is said; those after it only with --verbose.
void DStationService::waitAndRetry(const QString& reason)
{
    // A lost link fails the command in flight too: one wait for both.
    if (m_state == CeStopped || m_retry.isActive())
        return;
    if (m_state == CeListening)
        emit sigToolStateChanged(false);
    m_state = CeWaiting;
    if (!m_link->isLost())
        m_link->close();
    const QString line = QStringLiteral("retrying in %1 s").arg(m_backoffSeconds)
                         + (reason.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(reason));
    if (m_retrying)
        qInfo().noquote() << line;
    else
        DMessageHandler::say(line);
    m_retrying = true;
    m_retry.start(m_backoffSeconds * 1000);
    m_backoffSeconds = qMin(m_backoffSeconds * 2, c_maxBackoffSeconds);
    for (const DOrder& order : qAsConst(m_orders))
        order.done(false, QStringLiteral("the tool's link is down"));
    m_orders.clear();
}

void DStationService::setState(EnState state)
{
    if (state == m_state)
        return;
    m_state = state;
    if (state == CeConnecting && !m_retrying)
        DMessageHandler::say(QStringLiteral("connecting to %1").arg(m_bluetoothSerial.isEmpty() ? m_devicePath : m_bluetoothSerial));
    else if (state == CeListening) {
        DMessageHandler::say(QStringLiteral("listening"));
        emit sigToolStateChanged(true);
    }
}

void DStationService::runToolCommand(const QString& name, const QVariantMap& arguments, const DDone& done,
                                     const QString& requester)
{
    if (m_state != CeListening) {
        done(false, QStringLiteral("the tool's link is down"));
        return;
    }
    m_orders.enqueue({name, arguments, done, requester});
    runNextOrder();
}

void DStationService::runNextOrder()
{
    if (m_orderRunning || m_orders.isEmpty() || m_state != CeListening)
        return;
    const DOrder order = m_orders.dequeue();
    m_orderRunning = true;
    runStep(order.name, order.arguments, [this, order](bool ok, const QVariantMap&) {
        m_orderRunning = false;
        const QString reason = ok ? QString() : QStringLiteral("%1 was not acknowledged by the tool").arg(order.name);
        if (ok && order.name == QLatin1String("setLock"))
            emit sigToolLockSet(order.arguments.value(QStringLiteral("lock")).toBool(), order.requester);
        order.done(ok, reason);
        runNextOrder();
    });
}

void DStationService::stop(const std::function<void()>& done)
{
    m_state = CeStopped;
    m_retry.stop();
    for (const DOrder& order : qAsConst(m_orders))
        order.done(false, QStringLiteral("the station is stopping"));
    m_orders.clear();
    if (m_listenRun)
        m_runner->stop(m_device, QStringLiteral("stopListening"));
    m_link->close();
    m_hold->flush();
    if (m_doubles.count() > 0)
        DMessageHandler::say(QStringLiteral("%1 doubled report(s) dropped this run").arg(m_doubles.count()));
    done();
}
