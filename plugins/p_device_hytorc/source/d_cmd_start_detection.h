#ifndef D_CMD_START_DETECTION_H
#define D_CMD_START_DETECTION_H

#include "d_abstract_command.h"

#include <QMap>
#include <QPointer>
#include <QProcess>
#include <QStringList>

// "startDetection": lists the HYTORC tools that bluetoothctl knows or sees during a
// ten-second scan, publishing the whole list ("lastResults") each time it grows.
class DCmdStartDetection : public DAbstractCommand
{
    Q_OBJECT
public:
    DCmdStartDetection(const QVariantMap& arguments, QObject* parent);

    static DAbstractCommand* createPrototype(QObject* plugin);

    bool commandExecute() override;
    void finishTheCommand(bool& success) override;
    QSharedPointer<ICommand> newCommandInstance(const QVariantMap& arguments) override;

public slots:
    void onProcessOutput();
    void onProcessFinished(int exitCode, QProcess::ExitStatus exitStatus);

private:
    // The fuzz target feeds the parser directly: no scan process per input.
    friend class FuzzDetectionOutput;
    void parseDetectionOutput(const QString& text);

    static const QStringList c_detectionNames;

    QPointer<QProcess> scanProcess;
    // Keyed by the upper-case address: the published list comes out sorted by it.
    QMap<QString, QVariantMap> foundDevices;
};

#endif // D_CMD_START_DETECTION_H
