#include "d_link_supervisor.h"

#include "d_instruction_router.h"
#include "d_message_handler.h"
#include "d_signal_watcher.h"
#include "hytorc_hcp_frame.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QMetaMethod>
#include <QTimer>
#include <QtDebug>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString c_driverTarget = QStringLiteral("driver");
const QString c_changeDevicePath = QStringLiteral("changeDevicePath");
constexpr int c_answerTimeoutMs = 5000;
constexpr int c_retryPeriodMs = 250;
const QString c_checkInRange = QStringLiteral("check that the tool is switched on and in range");

// What a port that would not open says about itself: a path that is no terminal gets
// "Inappropriate ioctl for device" from the serial settings, which names nothing to check.
QString portProblem(const QString& path, QString* error)
{
    struct stat status = {};
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return QStringLiteral("check the port's name, and that the tool is paired and bound to it");
    // ENOTTY: the serial settings were refused by a device that is no terminal (/dev/null).
    if (!S_ISCHR(status.st_mode) || error->endsWith(QString::fromLocal8Bit(std::strerror(ENOTTY)))) {
        *error = QStringLiteral("cannot open %1: not a serial port (%2)")
                     .arg(path, S_ISDIR(status.st_mode) ? QStringLiteral("a folder")
                                : S_ISCHR(status.st_mode) ? QStringLiteral("a device that is no terminal")
                                                          : QStringLiteral("a file"));
        return QStringLiteral("give the tool's port, for a Bluetooth tool /dev/rfcomm0");
    }
    if (::access(QFile::encodeName(path).constData(), R_OK | W_OK) != 0)
        return QStringLiteral("check that this user may open %1 (group dialout)").arg(path);
    // An RFCOMM port says on opening that its tool does not answer.
    if (error->contains(QLatin1String("Host is down")))
        return c_checkInRange;
    if (error->contains(QLatin1String("Connection refused")))
        return QStringLiteral("check that the tool is switched on and paired");
    return QString();
}
// Beyond the plug-in's 3 s between resent headers: one unanswered resend makes the tool silent.
constexpr int c_answerWaitMs = 4000;

} // namespace

DLinkSupervisor::DLinkSupervisor(DInstructionRouter* router, QObject* driver, QObject* parent)
    : QObject(parent)
    , m_router(router)
{
    connect(driver, SIGNAL(sigPortStateChanged(bool, QString)), this, SLOT(onPortStateChanged(bool, QString)));
    connect(driver, SIGNAL(sigPortLost(QString, QString)), this, SLOT(onPortLost(QString, QString)));
    connect(driver, SIGNAL(sigBytesWritten(QByteArray)), this, SLOT(onBytesWritten(QByteArray)));
    connect(driver, SIGNAL(sigBytesRead(QByteArray)), this, SLOT(onBytesRead()));
    connect(router, &DInstructionRouter::sigInstructionFailed, this, &DLinkSupervisor::onInstructionFailed);
    m_answerWait.setSingleShot(true);
    m_answerWait.setInterval(c_answerWaitMs);
    connect(&m_answerWait, &QTimer::timeout, this, [this] { setState(CeLinkSilent); });
}

bool DLinkSupervisor::open(const QString& path, QString* error)
{
    DMessageHandler::setDevicePath(path);
    if (openOnce(path, error))
        return true;
    // The driver names the port first; "PATH is in use by another program" reads whole.
    if (error->startsWith(path + QStringLiteral(": ")))
        *error = QStringLiteral("cannot open ") + *error;
    const QString check = portProblem(path, error);
    if (!check.isEmpty())
        *error += QStringLiteral("; ") + check;
    return false;
}

void DLinkSupervisor::close()
{
    QEventLoop loop;
    QString refusal;
    if (m_router->openInstruction(c_driverTarget, QStringLiteral("closeConnection"), {}, c_answerTimeoutMs,
                                  [&](quint64, const QVariantMap&) { loop.quit(); }, &refusal))
        loop.exec();
    m_answerWait.stop();
    setState(CeLinkClosed);
}

bool DLinkSupervisor::reconnect(double seconds, QString* failure)
{
    m_aborted = false;
    QElapsedTimer clock;
    clock.start();
    setState(CeLinkReconnecting);
    while (!openOnce(m_openedPath, failure)) {
        qInfo().noquote() << QStringLiteral("reopening: %1").arg(*failure);
        if (m_aborted || clock.elapsed() >= qint64(seconds * 1000)) {
            setState(CeLinkLost);
            return false;
        }
        QEventLoop pause;
        QTimer::singleShot(c_retryPeriodMs, &pause, &QEventLoop::quit);
        pause.exec();
    }
    DMessageHandler::say(
        QStringLiteral("link back: %1 after %2 s").arg(m_openedPath).arg(clock.elapsed() / 1000.0, 0, 'f', 1));
    return true;
}

void DLinkSupervisor::abort() { m_aborted = true; }

QString DLinkSupervisor::lossSummary() const
{
    if (m_losses == 0)
        return QString();
    const qint64 downMs = m_downMs + (m_lost ? m_down.elapsed() : 0);
    return QStringLiteral("link lost %1 time(s), %2 s without it").arg(m_losses).arg(downMs / 1000.0, 0, 'f', 1);
}

// On opening, the driver's reason is the port's path.
void DLinkSupervisor::onPortStateChanged(bool open, const QString& reason)
{
    if (!open)
        return;
    if (m_lost)
        m_downMs += m_down.elapsed();
    m_lost = false;
    m_openedPath = reason;
    DMessageHandler::setDevicePath(reason);
    setState(CeLinkOpen);
}

QString DLinkSupervisor::notBackCheck() { return c_checkInRange; }

// Ctrl-C reaches the whole process group: a simulator of ours ends with us and takes its
// port along. That is no loss of the link; the handler has seen the signal before the port went.
void DLinkSupervisor::onPortLost(const QString& devicePath, const QString& cause)
{
    if (DSignalWatcher::terminationReceived())
        return;
    m_lost = true;
    ++m_losses;
    m_down.start();
    m_answerWait.stop();
    setState(CeLinkLost);
    DMessageHandler::say(QStringLiteral("link lost: %1 (%2)").arg(devicePath, cause));
    QMetaObject::invokeMethod(this, &DLinkSupervisor::sigLinkLost, Qt::QueuedConnection);
}

// An acknowledgement wants no answer; any other frame does, within c_answerWaitMs.
void DLinkSupervisor::onBytesWritten(const QByteArray& bytes)
{
    HytorcHcpFrame::Header header;
    const bool acknowledgement = HytorcHcpFrame::parseHeader(bytes, &header) && header.isAck();
    if (!acknowledgement && !m_answerWait.isActive() && (m_state == CeLinkOpen || m_state == CeLinkConnected))
        m_answerWait.start();
}

void DLinkSupervisor::onBytesRead()
{
    m_answerWait.stop();
    if (m_state == CeLinkOpen || m_state == CeLinkSilent)
        setState(CeLinkConnected);
}

void DLinkSupervisor::setState(EnLinkState state)
{
    if (state == m_state)
        return;
    m_state = state;
    emit sigStateChanged(state);
}

QString DLinkSupervisor::stateText(EnLinkState state)
{
    switch (state) {
    case CeLinkClosed:
        return QStringLiteral("closed");
    case CeLinkOpen:
        return QStringLiteral("waiting for the tool");
    case CeLinkConnected:
        return QStringLiteral("connected");
    case CeLinkSilent:
        return QStringLiteral("no answer from the tool");
    case CeLinkLost:
        return QStringLiteral("link lost");
    case CeLinkReconnecting:
        return QStringLiteral("reconnecting");
    }
    return QString();
}

bool DLinkSupervisor::openOnce(const QString& path, QString* error)
{
    const QVariantMap settings{
        {"devicePath", path}, {"rawMode", true}, {"parallelListening", true}, {"baud_rate", 115200},
        {"data_bits", 8},     {"parity", 0},     {"stop_bits", 1},            {"flow_control", 0}};
    QEventLoop loop;
    QVariantMap reply;
    const quint64 id = m_router->openInstruction(
        c_driverTarget, c_changeDevicePath, settings, c_answerTimeoutMs,
        [&](quint64, const QVariantMap& answer) {
            reply = answer;
            loop.quit();
        },
        error);
    if (id == 0)
        return false;
    loop.exec();
    const bool opened = reply.value(QStringLiteral("results")).toMap().value(QStringLiteral("doneOk")).toBool();
    if (!opened)
        *error = reply.value(QStringLiteral("error")).toString();
    return opened;
}

// Open and reopen failures are said by whoever asked; once the link is down, the
// writes of a command still winding down would only repeat "link lost".
// A command that writes before any port was opened (--bluetooth before searchAndConnect)
// would retry for 18 s: told once, to whoever runs it.
void DLinkSupervisor::onInstructionFailed(const QString& target, const QString& instruction, const QString& reason)
{
    if (instruction == c_changeDevicePath || m_lost)
        return;
    if (m_openedPath.isEmpty() && isSignalConnected(QMetaMethod::fromSignal(&DLinkSupervisor::sigNoPortOpen))) {
        emit sigNoPortOpen();
        return;
    }
    DMessageHandler::say(QStringLiteral("%1 \"%2\": %3").arg(target, instruction, reason));
}
