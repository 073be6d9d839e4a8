#include "d_station_daemon.h"

#include "d_message_handler.h"
#include "d_mqtt_reporter.h"
#include "d_op_server.h"
#include "d_result_journal.h"
#include "d_signal_watcher.h"
#include "d_simulator_process.h"
#include "part/d_error_proofing.h"
#include "part/d_identify_server.h"
#include "part/d_program_table.h"
#include "part/d_scanner_link.h"
#include "d_station_service.h"
#include "d_web_server.h"
#include "d_web_status.h"
#include "d_workstation.h"

#include <QCoreApplication>
#include <QDir>
#include <QHostInfo>

DStationDaemon::DStationDaemon(QObject* parent)
    : QObject(parent)
    , m_config(configKeys(), QStringLiteral("The HYTORC station service: keeps the tool connected and every tightening "
                                            "result in a journal."), {DProgramTable::c_sectionPrefix})
{
}

// The parts that pass results on go before the service they ask.
DStationDaemon::~DStationDaemon()
{
    delete m_webStatus;
    delete m_web;
    delete m_opServer;
    delete m_mqtt;
    delete m_service;
    delete m_workstation;
    delete m_simulator;
}

QList<DStationConfig::DKey> DStationDaemon::configKeys()
{
    return DStationService::configKeys() + DScannerLink::configKeys() + DErrorProofing::configKeys()
           + DMqttReporter::configKeys() + DOpServer::configKeys() + DWebServer::configKeys();
}

int DStationDaemon::run(const QStringList& arguments)
{
    QString message;
    bool helpShown = false;
    if (!m_config.parse(arguments, &message, &helpShown)) {
        if (helpShown) {
            std::fputs(qPrintable(message), stdout);
            return CeExitSuccess;
        }
        DMessageHandler::say(message);
        return CeExitUsage;
    }
    if (!DProgramTable::read(m_config, &m_programs, &message)) {
        DMessageHandler::say(message);
        return CeExitUsage;
    }
    if (m_config.checkOnly()) {
        std::fputs(qPrintable(DProgramTable::table(m_programs)), stdout);
        return CeExitSuccess;
    }
    DMessageHandler::install(m_config.verbose());
    int status = CeExitFailure;
    if (!setUp(&message, &status)) {
        DMessageHandler::say(message);
        return status;
    }
    m_signals = new DSignalWatcher(this);
    connect(m_signals, &DSignalWatcher::sigTerminate, this, &DStationDaemon::onTerminate);
    return QCoreApplication::exec();
}

bool DStationDaemon::setUp(QString* error, int* status)
{
    if (m_config.isSet(QStringLiteral("device")) && m_config.isSet(QStringLiteral("bluetooth"))) {
        *error = QStringLiteral("--device and --bluetooth name the tool twice: give one");
        *status = CeExitUsage;
        return false;
    }
    const QString station = m_config.isSet(QStringLiteral("station")) ? m_config.value(QStringLiteral("station")).trimmed()
                                                                       : QHostInfo::localHostName();
    const QString journal = m_config.isSet(QStringLiteral("journal")) ? m_config.value(QStringLiteral("journal"))
                                                                       : DResultJournal::defaultPath();
    m_journal = new DResultJournal(this);
    if (!m_journal->open(journal, DResultJournal::CeWriter, error))
        return false;
    DMessageHandler::say(QStringLiteral("journal %1 (last id %2)").arg(journal).arg(m_journal->lastId()));
    m_workstation = new DWorkstation();
    const QString plugins = QCoreApplication::applicationDirPath() + QStringLiteral("/../plugins");
    if (!m_workstation->setUp(QDir::cleanPath(plugins), error)) {
        *status = CeExitUsage;
        return false;
    }
    const QString bluetooth = m_config.value(QStringLiteral("bluetooth")).trimmed();
    QString device = m_config.value(QStringLiteral("device"));
    if (bluetooth.isEmpty() && device.isEmpty()) {
        m_simulator = new DSimulatorProcess(false);
        // A newcomer sees results arrive without a tool.
        if (!m_simulator->start({QStringLiteral("--event-period=3000")}, &device, error))
            return false;
        DMessageHandler::say(QStringLiteral("no --device given: using the tool simulator at %1").arg(device));
    }
    m_service = new DStationService(m_workstation, m_journal, station);
    m_service->setHoldLimit(m_config.intValue(QStringLiteral("hold")));
    setUpPart(station, journal);
    if (m_config.isSet(QStringLiteral("mqtt"))) {
        m_mqtt = new DMqttReporter(m_journal, m_service, this);
        if (!m_mqtt->start(m_config, error)) {
            *status = CeExitUsage;
            return false;
        }
    }
    m_opServer = new DOpServer(m_config, m_service, m_part, m_journal, this);
    m_opServer->start();
    m_web = new DWebServer(m_config, m_journal, this);
    connect(m_journal, &DResultJournal::sigCommitted, this, [this](qint64 id) { m_web->feed()->committed(id); });
    m_webStatus = new DWebStatus(m_web->feed(), m_service, m_part, m_journal, this);
    m_webStatus->setLinks(m_opServer, m_mqtt);
    m_web->start();
    m_service->start(device, bluetooth);
    return true;
}

void DStationDaemon::setUpPart(const QString& station, const QString& journal)
{
    m_part = new DStationPart(m_journal, station, this);
    m_part->setProgramSettings(m_programs);
    QStringList good = m_config.value(QStringLiteral("op-good-status")).split(QLatin1Char(','), Qt::SkipEmptyParts);
    for (QString& word : good)
        word = word.trimmed();
    m_part->setGoodStatus(good);
    m_service->setStamp([this](QVariantMap* record) { m_part->stamp(record); });
    connect(m_service, &DStationService::sigToolIdentified, m_part, [this] { m_part->setActiveProgram(m_service->currentProgId()); });
    connect(m_service, &DStationService::sigProgramSelected, m_part, [this](int progId) { m_part->setActiveProgram(progId); });
    auto* proofing = new DErrorProofing(m_part, m_service, this);
    proofing->setRequired(m_config.value(QStringLiteral("require-identifier")) == QLatin1String("true"));
    auto* scanner = new DScannerLink(m_part, this);
    scanner->configure(m_config);
    scanner->start();
    QString error;
    auto* identify = new DIdentifyServer(m_part, this);
    if (!identify->listen(journal, &error))
        DMessageHandler::say(error);
}

// Stops listening the host's way, closes the link and the journal, then leaves the event loop.
void DStationDaemon::onTerminate()
{
    // A signal to the whole process group arrives twice (to us, then to the group).
    if (m_stopping)
        return;
    m_stopping = true;
    DMessageHandler::say(QStringLiteral("stopping"));
    if (m_mqtt)
        m_mqtt->stop();
    m_opServer->stop();
    m_web->stop();
    m_service->stop([this] {
        m_journal->close();
        QCoreApplication::exit(CeExitSuccess);
    });
}
