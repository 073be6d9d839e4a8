#include "d_abstract_command.h"

#include "d_abstract_plugin.h"
#include "i_instruction_router.h"

#include <QTimer>
#include <QtDebug>

namespace {

QVariantList declarationsToList(const QVector<DAbstractCommand::Declaration>& declarations)
{
    QVariantList list;
    for (const auto& d : declarations) {
        list << QVariantMap{{QStringLiteral("name"), d.name},
                            {QStringLiteral("type"), d.type},
                            {QStringLiteral("description"), d.description},
                            {QStringLiteral("default"), d.defaultValue}};
    }
    return list;
}

} // namespace

DAbstractCommand::DAbstractCommand(const QString& name, const QVariantMap& arguments, QObject* parent)
    : DAbstractCommand(name, QString(), arguments, parent)
{
}

DAbstractCommand::DAbstractCommand(const QString& name, const QString& stopName,
                                   const QVariantMap& arguments, QObject* parent)
    : QObject(parent)
    , m_name(name)
    , m_stopName(stopName)
    , m_arguments(arguments)
{
    setObjectName(name);
}

// A command that goes away must not leave the router calling back into it.
DAbstractCommand::~DAbstractCommand()
{
    const auto ids = m_replyDelegates.keys();
    for (quint64 id : ids)
        stopTheInstruction(id);
}

void DAbstractCommand::linkWithItsOrder(QObject* order) { m_order = order; }
QString DAbstractCommand::commandName() const { return m_name; }
QString DAbstractCommand::stopCommandName() const { return m_stopName; }

quint64 DAbstractCommand::getOrderId() const
{
    return m_order ? m_order->property("orderId").toULongLong() : 0;
}

quint64 DAbstractCommand::getParameterOrderId() const
{
    return m_arguments.value(QStringLiteral("orderId")).toULongLong();
}

bool DAbstractCommand::isRecurrent() const { return !m_stopName.isEmpty(); }
bool DAbstractCommand::isValid() const { return !m_name.isEmpty(); }
QString DAbstractCommand::description() const { return m_description; }

QVariantMap DAbstractCommand::fullDescription() const
{
    return {{QStringLiteral("name"), m_name},
            {QStringLiteral("stopName"), m_stopName},
            {QStringLiteral("description"), m_description},
            {QStringLiteral("parameters"), declarationsToList(m_parameters)},
            {QStringLiteral("results"), declarationsToList(m_results)}};
}

QVariantMap DAbstractCommand::commandArguments() const { return m_arguments; }

bool DAbstractCommand::commandExecute()
{
    if (!isValid() || m_executed)
        return false;
    m_executed = true;
    return true;
}

bool DAbstractCommand::setReply(quint64 instructionId, const QVariantMap& reply)
{
    const auto it = m_replyDelegates.constFind(instructionId);
    if (it == m_replyDelegates.cend())
        return false;
    const InstructionReplyDelegate onReply = it.value();
    return onReply(instructionId, reply);
}

void DAbstractCommand::finishTheCommand(bool& ok) { commandFinish(ok); }

quint64 DAbstractCommand::addInstruction(const QString& target, const QString& instruction,
                                         const QVariantMap& parameters, int timeout,
                                         InstructionReplyDelegate onReply)
{
    IInstructionRouter* router = instructionRouter();
    QString refusal = QStringLiteral("no host to route it");
    QPointer<DAbstractCommand> self(this);
    const quint64 id = !router ? 0 : router->openInstruction(
        target, instruction, parameters, timeout,
        [self](quint64 instructionId, const QVariantMap& reply) {
            if (self)
                self->setReply(instructionId, reply);
        },
        &refusal);
    if (id == 0) {
        qWarning().noquote() << QStringLiteral("[HOST] %1: instruction \"%2\" to \"%3\" refused: %4")
                                    .arg(m_name, instruction, target, refusal);
        if (!onReply.empty())
            refuseLater(onReply, refusal);
        return 0;
    }
    if (!onReply.empty())
        m_replyDelegates.insert(id, onReply);
    return id;
}

void DAbstractCommand::refuseLater(InstructionReplyDelegate onReply, const QString& reason)
{
    const QVariantMap failure{{QStringLiteral("cmd_success"), false}, {QStringLiteral("error"), reason}};
    QTimer::singleShot(0, this, [onReply, failure] { onReply(0, failure); });
}

bool DAbstractCommand::stopTheInstruction(quint64 instructionId)
{
    m_replyDelegates.remove(instructionId);
    IInstructionRouter* router = instructionRouter();
    return router && instructionId != 0 && router->closeInstruction(instructionId);
}

void DAbstractCommand::setDescription(const QString& description) { m_description = description; }

void DAbstractCommand::declareAParameter(const QString& name, const QString& type,
                                         const QString& description, const QVariant& defaultValue)
{
    m_parameters.append({name, type, description, defaultValue});
}

void DAbstractCommand::declareAResult(const QString& name, const QString& type,
                                      const QString& description, const QVariant& defaultValue)
{
    m_results.append({name, type, description, defaultValue});
    m_resultValues.insert(name, defaultValue);
}

QVector<DAbstractCommand::Declaration> DAbstractCommand::declaredParameters() const { return m_parameters; }
QVector<DAbstractCommand::Declaration> DAbstractCommand::declaredResults() const { return m_results; }

QVariant DAbstractCommand::getParameterValue(const QString& name, const QVariant& defaultValue) const
{
    return m_arguments.value(name, defaultValue);
}

void DAbstractCommand::commandUpdateResult(const QString& name, const QVariant& value)
{
    commandUpdateResults({{name, value}});
}

void DAbstractCommand::commandUpdateResults(const QVariantMap& results)
{
    for (auto it = results.cbegin(); it != results.cend(); ++it)
        m_resultValues.insert(it.key(), it.value());
    emit sigResultsUpdated(results);
}

QVariantMap DAbstractCommand::commandResults() const { return m_resultValues; }

// A command ends once; later calls (a stop racing a reply) change nothing.
void DAbstractCommand::commandFinish(bool& ok)
{
    if (m_finished)
        return;
    m_finished = true;
    emit sigCommandFinished(ok);
}

bool DAbstractCommand::isFinished() const { return m_finished; }

QSharedPointer<ICommand> DAbstractCommand::shareCommand(DAbstractCommand* command)
{
    // Whichever comes first, the Qt parent or the last shared pointer, deletes it once.
    QPointer<DAbstractCommand> guard(command);
    return QSharedPointer<ICommand>(command, [guard](ICommand*) { delete guard.data(); });
}

IInstructionRouter* DAbstractCommand::instructionRouter() const
{
    for (QObject* o = parent(); o; o = o->parent()) {
        if (auto* plugin = qobject_cast<DAbstractPlugin*>(o))
            return plugin->instructionRouter();
    }
    return nullptr;
}
