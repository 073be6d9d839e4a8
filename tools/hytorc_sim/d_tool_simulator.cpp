#include "d_tool_simulator.h"

#include "d_sim_options.h"
#include "d_tool_state.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace {

// Periodic events wait while this much output is still queued (nobody reads the port).
const qint64 c_maxEventBacklog = 4096;

}  // namespace

DToolSimulator::DToolSimulator(const DSimOptions& options, DToolState* state, QObject* parent)
    : QObject(parent),
      m_options(options),
      m_state(state),
      m_random(quint32(options.seed)),
      m_handler(state, options),
      m_eventMaker(state, &m_random),
      m_shaper(options.eventShape),
      m_pacer(options.baud, [this](const QByteArray& bytes) { return m_port ? m_port->write(bytes) : -1; }),
      m_writer(&m_pacer, &m_random, options),
      m_link(&m_writer, &m_handler, options)
{
    connect(&m_link, &DHcpToolLink::sigDropRequested, this, &DToolSimulator::onDropRequested, Qt::QueuedConnection);
    connect(&m_eventTimer, &QTimer::timeout, this, &DToolSimulator::onEventPeriod);
    connect(&m_junkTimer, &QTimer::timeout, this, [this] { m_writer.writeJunkBurst(); });
    if (options.eventInTransaction)
        connect(&m_link, &DHcpToolLink::sigRequestAcknowledged, this, &DToolSimulator::sendEvent);
}

DToolSimulator::~DToolSimulator()
{
    removeLink();
    if (m_options.removeLinkFolder)
        QDir().rmdir(QFileInfo(m_options.linkPath).absolutePath());
}

bool DToolSimulator::writeRecord(QString* error)
{
    if (m_options.recordPath.isEmpty())
        return true;
    settleReports();
    const QJsonObject record{{"state", m_state->toJson()},
                             {"requests", QJsonArray::fromStringList(m_handler.requests())},
                             {"reports", m_reports.toJson()}};
    QSaveFile file(m_options.recordPath);
    if (!file.open(QIODevice::WriteOnly) || file.write(QJsonDocument(record).toJson()) < 0 || !file.commit()) {
        *error = QStringLiteral("cannot write %1: %2").arg(m_options.recordPath, file.errorString());
        return false;
    }
    return true;
}

bool DToolSimulator::start(QString* error)
{
    if (!openPort(error))
        return false;
    if (m_options.eventPeriodMs > 0)
        m_eventTimer.start(m_options.eventPeriodMs);
    if (m_options.junkPeriodMs > 0)
        m_junkTimer.start(m_options.junkPeriodMs);
    return true;
}

void DToolSimulator::onCommand(DStdinCommands::EnCommand command)
{
    switch (command) {
    case DStdinCommands::CeEvent:
        sendEvent();
        break;
    case DStdinCommands::CeQuiet:
        m_eventTimer.stop();
        break;
    case DStdinCommands::CeDrop:
        onDropRequested();
        break;
    case DStdinCommands::CeQuit:
        QCoreApplication::quit();
        break;
    case DStdinCommands::CeNok:
        m_eventMaker.failNext();
        break;
    case DStdinCommands::CeUnplugScanner:
        m_scanner.unplug();
        break;
    }
}

void DToolSimulator::onDropRequested()
{
    if (!m_port)
        return;
    removeLink();
    settleReports();
    m_pacer.clear();
    m_port.reset();
    if (m_options.reopenAfterMs < 0) {
        qInfo("link dropped");
        return;
    }
    qInfo("link dropped, reopening in %d ms", m_options.reopenAfterMs);
    QTimer::singleShot(m_options.reopenAfterMs, this, &DToolSimulator::onReopenDue);
}

void DToolSimulator::onReopenDue()
{
    QString error;
    m_link.reset();
    if (!openPort(&error))
        qCritical("cannot reopen the link: %s", qPrintable(error));
}

void DToolSimulator::onEventPeriod()
{
    if (m_pacer.backlog() <= c_maxEventBacklog)
        sendEvent();
}

bool DToolSimulator::openPort(QString* error)
{
    auto port = std::make_unique<DPseudoTerminal>();
    if (!port->open(error))
        return false;
    connect(port.get(), &DPseudoTerminal::sigBytesReceived, &m_link, &DHcpToolLink::feed);
    m_port = std::move(port);
    if (!pointLink(error))
        return false;
    std::printf("%s\n", qPrintable(m_port->slavePath()));
    std::fflush(stdout);
    qInfo("tool on %s", qPrintable(m_port->slavePath()));
    return true;
}

bool DToolSimulator::pointLink(QString* error)
{
    return m_options.linkPath.isEmpty() || m_port->linkAt(m_options.linkPath, error);
}

void DToolSimulator::removeLink()
{
    if (!m_options.linkPath.isEmpty() && m_port && QFileInfo(m_options.linkPath).symLinkTarget() ==
                                                       QFileInfo(m_port->slavePath()).absoluteFilePath())
        QFile::remove(m_options.linkPath);
}

void DToolSimulator::sendEvent()
{
    if (!m_port) {
        qInfo("no link: event not sent");
        return;
    }
    // A locked tool does not turn: no tightening, no report.
    if (m_state->isLocked()) {
        qInfo("locked: no tightening");
        return;
    }
    for (int i = 0; i < m_options.eventBurst; ++i)
        sendReport();
}

void DToolSimulator::sendReport()
{
    const DReportShaper::Report report = m_shaper.shape(m_eventMaker.nextEventLine());
    const int copies = m_link.sendEvent(report.payload);
    if (copies > 0)
        m_reports.add(report, copies, m_pacer.enqueuedTotal());
    if (m_options.verbose)
        qInfo("event (%s) %s", qPrintable(report.shape), qPrintable(report.line));
}

// What the pacer still holds has not reached the port.
void DToolSimulator::settleReports()
{
    m_reports.settle(m_pacer.enqueuedTotal() - m_pacer.backlog());
}
