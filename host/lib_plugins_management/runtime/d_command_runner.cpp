#include "d_command_runner.h"

#include "d_abstract_command.h"
#include "d_abstract_plugin.h"

namespace {

quint64 failStart(QString* error, const QString& reason)
{
    if (error)
        *error = reason;
    return 0;
}

} // namespace

DCommandRunner::DCommandRunner(QObject* parent)
    : QObject(parent)
{
}

quint64 DCommandRunner::start(DAbstractPlugin* plugin, const QString& name, const QVariantMap& arguments,
                              QString* error)
{
    DAbstractCommand* prototype = plugin ? plugin->declaredCommand(name) : nullptr;
    if (!prototype)
        return failStart(error, QStringLiteral("unknown command \"%1\"").arg(name));
    const QSharedPointer<ICommand> command = prototype->newCommandInstance(arguments);
    auto* object = dynamic_cast<DAbstractCommand*>(command.data());
    if (!object)
        return failStart(error, QStringLiteral("command \"%1\" gave no instance to run").arg(name));

    const quint64 runId = m_nextId++;
    m_runs.insert(runId, {name, plugin, command, object});
    watch(runId, object);
    if (!command->commandExecute()) {
        // Taken out first: dropping the command may call back into the run table.
        const DRun refused = m_runs.take(runId);
        return failStart(error, QStringLiteral("command \"%1\" refused to execute").arg(refused.name));
    }
    return runId;
}

int DCommandRunner::stop(DAbstractPlugin* plugin, const QString& stopName)
{
    if (stopName.isEmpty())
        return 0;
    int stopped = 0;
    const auto ids = m_runs.keys();
    for (quint64 id : ids) {
        const DRun run = m_runs.value(id);
        if (run.plugin == plugin && run.object && run.object->stopCommandName() == stopName && finish(id))
            ++stopped;
    }
    return stopped;
}

bool DCommandRunner::finish(quint64 runId)
{
    const DRun run = m_runs.value(runId);
    if (run.finished || !run.object)
        return false;
    bool ok = true;
    run.object->finishTheCommand(ok);
    return true;
}

int DCommandRunner::runningCount() const
{
    int running = 0;
    for (const DRun& run : m_runs)
        running += run.finished ? 0 : 1;
    return running;
}

// The end is only noted here, the release comes on a later turn: a command may
// finish from inside one of its own slots, or from inside commandExecute.
void DCommandRunner::watch(quint64 runId, DAbstractCommand* command)
{
    connect(command, &DAbstractCommand::sigResultsUpdated, this,
            [this, runId](const QVariantMap& changed) { onResultsUpdated(runId, changed); }, Qt::QueuedConnection);
    connect(command, &DAbstractCommand::sigCommandFinished, this,
            [this, runId](bool ok) { onCommandEnded(runId, ok); });
    connect(command, &QObject::destroyed, this, [this, runId] { onCommandEnded(runId, false); });
    const QList<QObject*> parts = command->findChildren<QObject*>();
    for (QObject* part : parts) {
        if (part->metaObject()->indexOfSignal("sigError(QString)") < 0)
            continue;
        m_partRuns.insert(part, runId);
        connect(part, SIGNAL(sigError(QString)), this, SLOT(onPartError(QString)));
        connect(part, &QObject::destroyed, this, [this, part] { m_partRuns.remove(part); });
    }
}

void DCommandRunner::onPartError(const QString& error)
{
    // Kept until the run is released: the command may have ended on this very error already.
    const auto it = m_runs.find(m_partRuns.value(sender()));
    if (it != m_runs.end())
        it->error = error;
}

void DCommandRunner::onResultsUpdated(quint64 runId, const QVariantMap& changed)
{
    const auto it = m_runs.constFind(runId);
    if (it != m_runs.cend())
        emit sigResultsUpdated(runId, it->name, changed);
}

void DCommandRunner::onCommandEnded(quint64 runId, bool ok)
{
    const auto it = m_runs.find(runId);
    if (it == m_runs.end() || it->finished)
        return;
    it->finished = true;
    const QVariantMap results = it->object ? it->object->commandResults() : QVariantMap();
    QMetaObject::invokeMethod(this, [this, runId, ok, results] { release(runId, ok, results); },
                              Qt::QueuedConnection);
}

void DCommandRunner::release(quint64 runId, bool ok, const QVariantMap& results)
{
    if (!m_runs.contains(runId))
        return;
    // Held until after the signal: the command goes when `run` does.
    const DRun run = m_runs.take(runId);
    if (!run.error.isEmpty())
        emit sigCommandError(runId, run.error);
    emit sigFinished(runId, run.name, ok, results);
}
