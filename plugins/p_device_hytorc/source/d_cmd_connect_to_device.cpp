#include "d_cmd_connect_to_device.h"

#include "process_end.h"

#include <QFile>
#include <QRegularExpression>
#include <QTimer>

#include <algorithm>

namespace {

const QString c_driver = QStringLiteral("driver");
const QString c_devicePath = QStringLiteral("/dev/rfcomm0");
constexpr int c_instructionTimeout = 2000;
constexpr int c_killWaitMs = 30000;
constexpr int c_infoWaitMs = 3000;
// Power on and trust are repeated at most three times before the run fails.
constexpr int c_maxStepRetries = 2;
// "changeDevicePath" is repeated at most five times.
constexpr int c_maxFinalizeRetries = 4;

enum EnStep { CeStepRemove = 0, CeStepPowerOn, CeStepScan, CeStepTrust, CeStepConnect, CeStepRelease,
              CeStepBind, CeStepFinalize };

} // namespace

DCmdConnectToDevice::DCmdConnectToDevice(const QVariantMap& arguments, QObject* parent)
    : DAbstractCommand(QStringLiteral("searchAndConnect"), arguments, parent)
    , connectProcess(new QProcess(this))
{
    setDescription(QStringLiteral("Bluetooth RFCOMM connection to HYTORC tool"));
    declareAResult(QStringLiteral("doneOk"), QStringLiteral("bool"), QStringLiteral("Device connected"), false);
    declareAResult(QStringLiteral("failed"), QStringLiteral("bool"), QStringLiteral("Connection failed"), false);
    connectProcessEnd(connectProcess.data(), this, &DCmdConnectToDevice::onProcessFinished);
}

DAbstractCommand* DCmdConnectToDevice::createPrototype(QObject* plugin)
{
    return new DCmdConnectToDevice(QVariantMap(), plugin);
}

bool DCmdConnectToDevice::commandExecute()
{
    if (!DAbstractCommand::commandExecute() || !connectProcess)
        return false;
    static const QRegularExpression quotes(QStringLiteral("[\"']"));
    serialId = getParameterValue(QStringLiteral("serialId"), QVariant()).toString().trimmed().remove(quotes);
    if (serialId.isEmpty()) {
        disconnectAndFail();
        return true;
    }
    step = CeStepRemove;
    finalizeRetries = 0;
    stepRetries = 0;
    // Forget any earlier pairing: the sequence starts from a clean state.
    connectProcess->start(QStringLiteral("bluetoothctl"), {QStringLiteral("remove"), serialId},
                          QIODevice::ReadWrite);
    return true;
}

void DCmdConnectToDevice::finishTheCommand(bool& ok)
{
    endProcess(connectProcess, c_killWaitMs);
    commandFinish(ok);
}

QSharedPointer<ICommand> DCmdConnectToDevice::newCommandInstance(const QVariantMap& arguments)
{
    return shareCommand(new DCmdConnectToDevice(arguments, parent()));
}

bool DCmdConnectToDevice::isToolConnected() const
{
    QProcess info;
    info.start(QStringLiteral("bluetoothctl"), {QStringLiteral("info"), serialId}, QIODevice::ReadWrite);
    info.waitForFinished(c_infoWaitMs);
    endProcess(&info, c_killWaitMs);
    return QString::fromUtf8(info.readAllStandardOutput()).contains(QStringLiteral("Connected: yes"),
                                                                      Qt::CaseInsensitive);
}

bool DCmdConnectToDevice::isSuccessOutput(const QString& text)
{
    static const QStringList successWords{QStringLiteral("successfully"), QStringLiteral("succeeded"),
                                          QStringLiteral("changed"), QStringLiteral("connected: yes")};
    return std::any_of(successWords.cbegin(), successWords.cend(),
                       [&](const QString& word) { return text.contains(word, Qt::CaseInsensitive); });
}

// The exit code is never looked at: a step killed by `timeout` is judged by what it printed.
void DCmdConnectToDevice::onProcessFinished(int exitCode, QProcess::ExitStatus exitStatus)
{
    Q_UNUSED(exitCode)
    if (!connectProcess)
        return;
    if (exitStatus == QProcess::CrashExit) {
        disconnectAndFail();
        return;
    }
    const QString output = QString::fromUtf8(connectProcess->readAllStandardOutput());
    connectProcess->readAllStandardError();
    const bool success = isSuccessOutput(output);
    switch (step) {
    case CeStepRemove:
        // An unknown device cannot be removed: that is no reason to stop.
        step = CeStepPowerOn;
        QTimer::singleShot(500, this, SLOT(runNextStep()));
        break;
    case CeStepPowerOn:
        success ? onStepSucceeded() : retryOrFail(CeStepPowerOn, 1000);
        break;
    case CeStepScan:
        step = CeStepTrust;
        QTimer::singleShot(1000, this, SLOT(runNextStep()));
        break;
    case CeStepTrust:
        // A tool not trusted yet may not have been seen: scan again before the next try.
        success ? onStepSucceeded() : retryOrFail(CeStepScan, 500);
        break;
    case CeStepConnect:
        success ? onStepSucceeded() : disconnectAndFail();
        break;
    case CeStepRelease:
    case CeStepBind:
        advanceStep();
        break;
    default:
        break;
    }
}

void DCmdConnectToDevice::onStepSucceeded()
{
    stepRetries = 0;
    advanceStep();
}

void DCmdConnectToDevice::retryOrFail(int stepToRun, int pauseMs)
{
    if (stepRetries > c_maxStepRetries) {
        stepRetries = 0;
        disconnectAndFail();
        return;
    }
    step = stepToRun;
    ++stepRetries;
    QTimer::singleShot(pauseMs, this, SLOT(runNextStep()));
}

void DCmdConnectToDevice::advanceStep()
{
    switch (step) {
    case CeStepPowerOn:
        step = CeStepTrust;
        QTimer::singleShot(500, this, SLOT(runNextStep()));
        break;
    case CeStepTrust:
    case CeStepConnect:
        ++step;
        QTimer::singleShot(200, this, SLOT(runNextStep()));
        break;
    case CeStepRelease:
        step = CeStepBind;
        QTimer::singleShot(300, this, SLOT(runNextStep()));
        break;
    case CeStepBind:
        step = CeStepFinalize;
        if (QFile::exists(c_devicePath))
            QTimer::singleShot(500, this, SLOT(runNextStep()));
        else
            disconnectAndFail();
        break;
    default:
        break;
    }
}

QStringList DCmdConnectToDevice::stepCommandLine() const
{
    switch (step) {
    case CeStepPowerOn:
        return {QStringLiteral("bluetoothctl"), QStringLiteral("power"), QStringLiteral("on")};
    case CeStepScan:
        return {QStringLiteral("bluetoothctl"), QStringLiteral("--timeout"), QStringLiteral("10"),
                QStringLiteral("scan"), QStringLiteral("on")};
    case CeStepTrust:
        return {QStringLiteral("timeout"), QStringLiteral("10"), QStringLiteral("bluetoothctl"),
                QStringLiteral("trust"), serialId};
    case CeStepConnect:
        return {QStringLiteral("timeout"), QStringLiteral("15"), QStringLiteral("bluetoothctl"),
                QStringLiteral("connect"), serialId};
    case CeStepRelease:
        return {QStringLiteral("rfcomm"), QStringLiteral("release"), QStringLiteral("0")};
    case CeStepBind:
        return {QStringLiteral("rfcomm"), QStringLiteral("bind"), QStringLiteral("0"), serialId,
                QStringLiteral("1")};
    default:
        return {};
    }
}

void DCmdConnectToDevice::runNextStep()
{
    if (!connectProcess)
        return;
    if (step == CeStepFinalize) {
        finalizeConnection();
        return;
    }
    QStringList commandLine = stepCommandLine();
    if (commandLine.isEmpty())
        return;
    const QString program = commandLine.takeFirst();
    connectProcess->start(program, commandLine, QIODevice::ReadWrite);
}

void DCmdConnectToDevice::finalizeConnection()
{
    const QVariantMap settings{{QStringLiteral("devicePath"), c_devicePath},
                               {QStringLiteral("rawMode"), true},
                               {QStringLiteral("parallelListening"), true},
                               {QStringLiteral("baud_rate"), 115200},
                               {QStringLiteral("data_bits"), 8},
                               {QStringLiteral("parity"), 0},
                               {QStringLiteral("stop_bits"), 1},
                               {QStringLiteral("flow_control"), 0}};
    addInstruction(c_driver, QStringLiteral("changeDevicePath"), settings, c_instructionTimeout,
                   InstructionReplyDelegate(this, &DCmdConnectToDevice::onChangeDevicePathReply));
}

bool DCmdConnectToDevice::onChangeDevicePathReply(quint64 instructionId, const QVariantMap& replyData)
{
    Q_UNUSED(instructionId)
    if (replyData.value(QStringLiteral("results")).toMap().value(QStringLiteral("doneOk")).toBool()) {
        commandUpdateResult(QStringLiteral("doneOk"), true);
        commandUpdateResult(QStringLiteral("failed"), false);
        bool ok = true;
        finishTheCommand(ok);
        return ok;
    }
    if (finalizeRetries <= c_maxFinalizeRetries) {
        ++finalizeRetries;
        QTimer::singleShot(1000, this, SLOT(finalizeConnection()));
        return true;
    }
    // Asked twice on purpose: once here, once by the common failure road.
    closeConnection();
    disconnectAndFail();
    return true;
}

void DCmdConnectToDevice::disconnectAndFail()
{
    commandUpdateResult(QStringLiteral("doneOk"), false);
    commandUpdateResult(QStringLiteral("failed"), true);
    closeConnection();
    bool ok = true;
    finishTheCommand(ok);
}

void DCmdConnectToDevice::closeConnection()
{
    addInstruction(c_driver, QStringLiteral("closeConnection"), QVariantMap(), c_instructionTimeout,
                   InstructionReplyDelegate());
}
