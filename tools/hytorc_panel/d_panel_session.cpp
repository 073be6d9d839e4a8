#include "d_panel_session.h"

#include "d_abstract_plugin.h"
#include "d_abstract_plugin_backend.h"
#include "d_backend_host.h"
#include "d_id_text_translator.h"
#include "d_maintenance_panel_loader.h"
#include "d_workstation.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QGuiApplication>
#include <QImage>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QScreen>
#include <QTimer>

#include <cstdio>

namespace {

const char* const c_toolInfoButton = "maintenance_panel_device_hytorc.idColumnCommands.idButtonGetToolInfo";
const char* const c_loadingProperty = "toolInfoLoading";
// Beyond the host's own limit for a command, so that its outcome is what shows.
constexpr int c_settleLimitMs = DBackendHost::c_defaultTimeoutMs + 5000;
constexpr int c_settlePollMs = 100;
// A lost link is reopened for this long, then again after a pause, until the program ends.
constexpr double c_reconnectSeconds = 5;
constexpr int c_reconnectPauseMs = 1000;

void complain(const QString& message)
{
    std::fprintf(stderr, "hytorc-panel: %s\n", qPrintable(message));
}

} // namespace

DPanelSession::DPanelSession(const Options& options, QObject* parent)
    : QObject(parent)
    , m_options(options)
    , m_simulator(false)
    , m_station(new DWorkstation)
{
    m_backendHost.reset(new DBackendHost(m_station->runner()));
}

DPanelSession::~DPanelSession()
{
    m_window.reset();
    m_engine.reset();
}

bool DPanelSession::start(int* exitCode)
{
    QString error;
    if (!m_station->setUp(m_options.pluginDirectory, &error)) {
        complain(error);
        *exitCode = CeExitUsage;
        return false;
    }
    if (!openLink(&error)) {
        complain(error);
        *exitCode = CeExitFailed;
        return false;
    }
    if (!buildPanel(&error)) {
        complain(error);
        *exitCode = CeExitUsage;
        return false;
    }
    watchInstructions();
    showWindow();
    if (m_options.toolInfo)
        QTimer::singleShot(0, this, &DPanelSession::pressToolInfo);
    if (!m_options.screenshot.isEmpty())
        QTimer::singleShot(0, this, &DPanelSession::settleThenScreenshot);
    return true;
}

bool DPanelSession::openLink(QString* error)
{
    m_devicePath = m_options.device;
    if (m_devicePath.isEmpty() && !m_simulator.start(m_options.simulatorArguments, &m_devicePath, error))
        return false;
    m_backendHost->addInstance(m_station->device());
    m_link = new DLinkSupervisor(m_station->router(), m_station->driver(), this);
    connect(m_link, &DLinkSupervisor::sigStateChanged, this, &DPanelSession::onLinkState);
    return m_link->open(m_devicePath, error);
}

// The header says "Connected" only while the tool answers; the link channel says the rest.
void DPanelSession::onLinkState(DLinkSupervisor::EnLinkState state)
{
    m_backendHost->setConnected(m_station->device(), state == DLinkSupervisor::CeLinkConnected,
                                DLinkSupervisor::stateText(state));
    if (state == DLinkSupervisor::CeLinkOpen)
        QTimer::singleShot(0, this, &DPanelSession::readProgramList);
    else if (state == DLinkSupervisor::CeLinkLost && !m_stopped)
        QTimer::singleShot(c_reconnectPauseMs, this, &DPanelSession::reconnect);
}

void DPanelSession::reconnect()
{
    QString failure;
    if (!m_stopped)
        m_link->reconnect(c_reconnectSeconds, &failure);
}

void DPanelSession::stop()
{
    m_stopped = true;
    if (m_link)
        m_link->abort();
}

// As the workstation does on connecting: the panel's programs are those of this list.
void DPanelSession::readProgramList()
{
    m_backendHost->runCommand(this, m_station->device()->objectUuid().toString(), QStringLiteral("listProgram"), {},
                              0, [](const IPluginBackendHost::Outcome& outcome) {
                                  if (outcome.error != IMessenger::CeNoError
                                      || !outcome.results.value(QStringLiteral("cmd_success")).toBool())
                                      complain(QStringLiteral("the tool's program list could not be read: %1")
                                                   .arg(outcome.reason.isEmpty() ? QStringLiteral("no answer")
                                                                                 : outcome.reason));
                              });
}

bool DPanelSession::buildPanel(QString* error)
{
    m_engine.reset(new QQmlEngine);
    QCoreApplication::installTranslator(new DIdTextTranslator(m_engine.get()));
    DAbstractPluginBackend::setEngineHost(m_engine.get(), m_backendHost.get());
    m_panel = DMaintenancePanelLoader::createPanel(m_engine.get(), m_station->device(), m_options.name,
                                                   m_devicePath, error);
    return m_panel != nullptr;
}

// A failed instruction (the tool information) is said here and fails the run.
void DPanelSession::watchInstructions()
{
    auto* backend = m_panel->findChild<DAbstractPluginBackend*>();
    if (!backend)
        return;
    connect(backend, &DAbstractPluginBackend::sigInstructionFailed, this,
            [this](const QString& instruction, const QString& reason) {
                m_failed = true;
                complain(QStringLiteral("%1 failed: %2").arg(instruction, reason));
            });
}

// The window takes the panel's natural size, and the panel the window's.
void DPanelSession::showWindow()
{
    // No GPU off screen: the scene graph draws in software there.
    if (QGuiApplication::platformName() == QLatin1String("offscreen"))
        QQuickWindow::setSceneGraphBackend(QSGRendererInterface::Software);
    m_window.reset(new QQuickWindow);
    m_window->setTitle(QStringLiteral("HYTORC maintenance panel - %1").arg(m_options.name));
    m_panel->setParent(m_window.get());
    m_panel->setParentItem(m_window->contentItem());
    const auto fitWindow = [this] {
        m_window->resize(int(m_panel->implicitWidth()), int(m_panel->implicitHeight()));
    };
    connect(m_panel, &QQuickItem::implicitHeightChanged, this, fitWindow);
    connect(m_window.get(), &QWindow::widthChanged, m_panel, [this](int width) { m_panel->setWidth(width); });
    connect(m_window.get(), &QWindow::heightChanged, m_panel, [this](int height) { m_panel->setHeight(height); });
    fitWindow();
    m_window->show();
}

void DPanelSession::pressToolInfo()
{
    QObject* button = m_panel->findChild<QObject*>(QString::fromLatin1(c_toolInfoButton));
    if (button)
        QMetaObject::invokeMethod(button, "clicked");
    else
        complain(QStringLiteral("the panel has no \"Get Tool Info\" button"));
}

// Settled: the tool information is in, or has failed, when it was asked for.
void DPanelSession::settleThenScreenshot()
{
    auto* poll = new QTimer(this);
    const QDeadlineTimer deadline(c_settleLimitMs);
    connect(poll, &QTimer::timeout, this, [this, poll, deadline] {
        const bool loading = m_panel->property(c_loadingProperty).toBool();
        if (loading && !deadline.hasExpired())
            return;
        poll->deleteLater();
        if (loading) {
            m_failed = true;
            complain(QStringLiteral("no tool information after %1 s").arg(c_settleLimitMs / 1000));
        }
        saveScreenshot();
    });
    poll->start(c_settlePollMs);
}

// The software scene graph of the offscreen platform paints into the window's backing
// store, which only the screen can grab.
void DPanelSession::saveScreenshot()
{
    QImage image = m_window->grabWindow();
    if (image.isNull())
        image = m_window->screen()->grabWindow(m_window->winId()).toImage();
    if (image.isNull() || !image.save(m_options.screenshot, "PNG")) {
        complain(QStringLiteral("cannot write the screenshot %1").arg(m_options.screenshot));
        emit sigFinished(CeExitFailed);
        return;
    }
    emit sigFinished(exitCode());
}
