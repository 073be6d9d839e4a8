#ifndef D_COMMAND_RUNNER_H
#define D_COMMAND_RUNNER_H

#include <QHash>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QSharedPointer>
#include <QVariantMap>

class DAbstractCommand;
class DAbstractPlugin;
class ICommand;

// Runs plug-in commands the host's way and keeps each alive until it has finished.
// Its signals are queued: a caller always holds the run id before any signal of that run.
class DCommandRunner : public QObject
{
    Q_OBJECT
public:
    explicit DCommandRunner(QObject* parent = nullptr);

    // declaredCommand(name)->newCommandInstance(arguments), connect, commandExecute().
    // Returns a run id (> 0), or 0 with *error: unknown command, or execution refused.
    quint64 start(DAbstractPlugin* plugin, const QString& name, const QVariantMap& arguments, QString* error);
    // Ends every running command of `plugin` whose stopCommandName() is `stopName`
    // (finishTheCommand with ok = true); returns how many.
    int stop(DAbstractPlugin* plugin, const QString& stopName);
    // Ends one running command the host's way (finishTheCommand with ok = true); false when it is not running.
    bool finish(quint64 runId);
    int runningCount() const;

signals:
    void sigResultsUpdated(quint64 runId, const QString& name, const QVariantMap& changed);
    // results = commandResults() at the end; a command destroyed before it finished
    // (its plug-in went away) ends with ok false and no results.
    void sigFinished(quint64 runId, const QString& name, bool ok, const QVariantMap& results);
    // Just before sigFinished, when a part of the command (its protocol engine) reported a
    // failure by a sigError(QString) signal: the reason behind a "cmd_success" false,
    // which the results do not carry.
    void sigCommandError(quint64 runId, const QString& error);

private slots:
    void onPartError(const QString& error);

private:
    struct DRun {
        QString name;
        QPointer<DAbstractPlugin> plugin;
        QSharedPointer<ICommand> command;
        QPointer<DAbstractCommand> object;
        bool finished = false;
        QString error;  // the last a part of the command reported
    };

    void watch(quint64 runId, DAbstractCommand* command);
    void onResultsUpdated(quint64 runId, const QVariantMap& changed);
    void onCommandEnded(quint64 runId, bool ok);
    void release(quint64 runId, bool ok, const QVariantMap& results);

    QHash<QObject*, quint64> m_partRuns;  // parts reporting errors, by the run they belong to
    QMap<quint64, DRun> m_runs;  // by run id: stopped in the order they started
    quint64 m_nextId = 1;
};

#endif // D_COMMAND_RUNNER_H
