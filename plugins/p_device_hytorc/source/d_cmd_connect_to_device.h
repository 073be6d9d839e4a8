#ifndef D_CMD_CONNECT_TO_DEVICE_H
#define D_CMD_CONNECT_TO_DEVICE_H

#include "d_abstract_command.h"

#include <QPointer>
#include <QProcess>

// "searchAndConnect": pairs the tool given by "serialId" with bluetoothctl, binds
// /dev/rfcomm0 to it with rfcomm, then has the driver open that device
// ("changeDevicePath"). The outcome is in "doneOk" and "failed"; every failure
// also asks the driver to close its connection.
class DCmdConnectToDevice : public DAbstractCommand
{
    Q_OBJECT
public:
    DCmdConnectToDevice(const QVariantMap& arguments, QObject* parent);

    static DAbstractCommand* createPrototype(QObject* plugin);

    bool commandExecute() override;
    void finishTheCommand(bool& ok) override;
    QSharedPointer<ICommand> newCommandInstance(const QVariantMap& arguments) override;

    // Asks bluetoothctl whether the tool is connected now (blocks up to 3 s).
    bool isToolConnected() const;

public slots:
    void onProcessFinished(int exitCode, QProcess::ExitStatus exitStatus);
    void runNextStep();
    void disconnectAndFail();
    void finalizeConnection();

private:
    static bool isSuccessOutput(const QString& text);
    QStringList stepCommandLine() const;
    void onStepSucceeded();
    void retryOrFail(int stepToRun, int pauseMs);
    void advanceStep();
    bool onChangeDevicePathReply(quint64 instructionId, const QVariantMap& replyData);
    void closeConnection();

    QString serialId;
    QPointer<QProcess> connectProcess;
    qint32 step = 1;
    qint32 finalizeRetries = 0;
    qint32 stepRetries = 0;
};

#endif // D_CMD_CONNECT_TO_DEVICE_H
