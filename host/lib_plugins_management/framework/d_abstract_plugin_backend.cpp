#include "d_abstract_plugin_backend.h"

#include <QQmlEngine>
#include <QTimer>
#include <QtDebug>

namespace {

const char* const c_engineHostProperty = "pluginBackendHost";
const QString c_success = QStringLiteral("cmd_success");
const QString c_error = QStringLiteral("error");

template <typename T, typename Signal>
void setAndNotify(DAbstractPluginBackend* backend, T& member, const T& value, Signal changed)
{
    if (member == value)
        return;
    member = value;
    emit(backend->*changed)();
}

} // namespace

DAbstractPluginBackend::DAbstractPluginBackend(const QString& moduleName, QObject* parent)
    : QObject(parent)
{
    setObjectName(moduleName);
}

DAbstractPluginBackend::~DAbstractPluginBackend() = default;

QString DAbstractPluginBackend::name() const { return m_name; }
void DAbstractPluginBackend::setName(const QString& name)
{
    setAndNotify(this, m_name, name, &DAbstractPluginBackend::nameChanged);
}

QString DAbstractPluginBackend::objectId() const { return m_objectId; }
void DAbstractPluginBackend::setObjectId(const QString& objectId)
{
    setAndNotify(this, m_objectId, objectId, &DAbstractPluginBackend::objectIdChanged);
}

QString DAbstractPluginBackend::reference() const { return m_reference; }
void DAbstractPluginBackend::setReference(const QString& reference)
{
    setAndNotify(this, m_reference, reference, &DAbstractPluginBackend::referenceChanged);
}

bool DAbstractPluginBackend::isConnected() const { return m_connected; }
void DAbstractPluginBackend::setConnected(bool connected)
{
    setAndNotify(this, m_connected, connected, &DAbstractPluginBackend::isConnectedChanged);
}

bool DAbstractPluginBackend::hasPendingTreatments() const { return !m_treatments.isEmpty(); }

void DAbstractPluginBackend::setEngineHost(QQmlEngine* engine, QObject* host)
{
    engine->setProperty(c_engineHostProperty, QVariant::fromValue(host));
}

bool DAbstractPluginBackend::attachToHost(QObject* host)
{
    auto* backendHost = qobject_cast<IPluginBackendHost*>(host);
    QString refusal = QStringLiteral("no host to link it to");
    if (!backendHost || !backendHost->attachBackend(this, &refusal)) {
        qWarning().noquote() << QStringLiteral("[HOST] panel \"%1\": %2").arg(m_name, refusal);
        return false;
    }
    m_hostObject = host;
    m_host = backendHost;
    emit abstractBackendInitialized();
    return true;
}

void DAbstractPluginBackend::classBegin() {}

// The panel's bindings (name, objectId) are set by now.
void DAbstractPluginBackend::componentComplete()
{
    if (QQmlEngine* engine = qmlEngine(this))
        attachToHost(engine->property(c_engineHostProperty).value<QObject*>());
}

bool DAbstractPluginBackend::applyTreatmentReply(int, const QString&, const QVariantMap& reply)
{
    return reply.value(c_success).toBool();
}

bool DAbstractPluginBackend::queueTreatment(int kind, const QString& name, const QVariantMap& data)
{
    if (m_treatments.size() >= c_maxPendingTreatments)
        return false;
    m_treatments.enqueue({kind, name, data});
    runNextTreatment();
    return true;
}

quint64 DAbstractPluginBackend::sendAnInstruction(const QString& instruction, const QVariantMap& parameters,
                                                  InstructionReplyDelegate onReply, int timeout,
                                                  InstructionErrorDelegate onError)
{
    const quint64 id = m_nextInstructionId++;
    run(instruction, parameters, timeout, [=](const IPluginBackendHost::Outcome& outcome) {
        onInstructionEnded(id, instruction, outcome, onReply, onError);
    });
    return id;
}

// Without a host the outcome still comes, on a later turn, as a failure.
void DAbstractPluginBackend::run(const QString& command, const QVariantMap& data, int timeout,
                                 IPluginBackendHost::EndHandler onEnd)
{
    if (m_hostObject) {
        m_host->runCommand(this, m_objectId, command, data, timeout, std::move(onEnd));
        return;
    }
    const IPluginBackendHost::Outcome missing{
        IMessenger::CeTargetMissing,
        QStringLiteral("the panel \"%1\" is linked to no plug-in instance").arg(m_name), {}};
    QTimer::singleShot(0, this, [onEnd, missing] { onEnd(missing); });
}

void DAbstractPluginBackend::runNextTreatment()
{
    if (m_treatmentRunning || m_treatments.isEmpty())
        return;
    m_treatmentRunning = true;
    const DTreatment& next = m_treatments.head();
    run(next.name, next.data, 0, [this](const IPluginBackendHost::Outcome& outcome) { onTreatmentEnded(outcome); });
}

void DAbstractPluginBackend::onTreatmentEnded(const IPluginBackendHost::Outcome& outcome)
{
    const DTreatment treatment = m_treatments.dequeue();
    m_treatmentRunning = false;
    QVariantMap reply = outcome.results;
    if (outcome.error != IMessenger::CeNoError) {
        qWarning().noquote() << QStringLiteral("[HOST] treatment %1 \"%2\" of panel \"%3\" failed: %4")
                                    .arg(treatment.kind).arg(treatment.name, m_name, outcome.reason);
        reply = {{c_success, false}, {c_error, outcome.reason}};
    }
    const bool ok = applyTreatmentReply(treatment.kind, treatment.name, reply);
    emit treatmentReleased(treatment.kind, treatment.name, ok);
    runNextTreatment();
}

void DAbstractPluginBackend::onInstructionEnded(quint64 id, const QString& instruction,
                                                const IPluginBackendHost::Outcome& outcome,
                                                InstructionReplyDelegate onReply, InstructionErrorDelegate onError)
{
    if (outcome.error != IMessenger::CeNoError) {
        emit sigInstructionFailed(instruction, outcome.reason);
        if (!onError.empty())
            onError(id, outcome.error, {{c_error, outcome.reason}});
        return;
    }
    if (!outcome.results.value(c_success, true).toBool())
        emit sigInstructionFailed(instruction, QStringLiteral("it ended without success: check that the device is on, in range and connected"));
    if (!onReply.empty())
        onReply(id, outcome.results);
}
