#ifndef D_STEP_PROGRESS_H
#define D_STEP_PROGRESS_H

#include <QObject>
#include <QString>
#include <QTimer>

class DExternalPrograms;

// One line on stderr per step of a long Bluetooth command, as the system programs it
// runs come and go: which step, of how many, and how long it may wait.
class DStepProgress : public QObject
{
    Q_OBJECT
public:
    DStepProgress(const DExternalPrograms& programs, const QString& command, QObject* parent = nullptr);

private:
    void onTick();

    const DExternalPrograms& m_programs;
    QString m_command;
    QString m_said;
    QTimer m_timer;
};

#endif // D_STEP_PROGRESS_H
