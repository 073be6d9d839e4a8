#include "p_driver_serial.h"

#include "d_serial_settings.h"
#include "utilities.h"

#include <QHash>

namespace {
const QUuid c_pluginUuid(QStringLiteral("{6a0f4e2b-93c1-4d57-8b2e-5f17c9d4a803}"));
const QString c_success = QStringLiteral("cmd_success");
const QString c_error = QStringLiteral("error");
const QString c_frame = QStringLiteral("frame");

QVariantMap outcome(bool ok, const QString& error)
{
    QVariantMap reply{{c_success, ok}};
    if (!ok)
        reply.insert(c_error, error);
    return reply;
}

} // namespace

PDriverSerial::PDriverSerial(const QUuid& objectUuid, QObject* parent)
    : DAbstractPlugin(c_pluginUuid, QStringLiteral("Plugin Driver Serial"), IPlugin::CeTypeDriver,
                      versionFromString(QStringLiteral("1.0"), nullptr, QLatin1Char('.')), objectUuid, parent, false)
    , m_keepAlive(&m_link, [this] { return m_listeners.transactionInFlight(); })
{
    connect(&m_link, &DSerialLink::sigBytesRead, this, &PDriverSerial::sigBytesRead);
    connect(&m_link, &DSerialLink::sigBytesRead, this, &PDriverSerial::onBytesRead);
    connect(&m_link, &DSerialLink::sigBytesWritten, this, &PDriverSerial::sigBytesWritten);
    connect(&m_link, &DSerialLink::sigPortStateChanged, this, &PDriverSerial::sigPortStateChanged);
    connect(&m_link, &DSerialLink::sigPortLost, this, &PDriverSerial::onPortLost);
    connect(&m_link, &DSerialLink::sigPortLost, this, &PDriverSerial::sigPortLost);
}

// A driver offers instructions, not commands.
void PDriverSerial::initPluginCommands()
{
    initAbstractCommands();
    emit sigCommandsInitDone(objectUuid(), commandNames());
}

IPlugin* PDriverSerial::createInstance(const QUuid& objectUuid) const { return new PDriverSerial(objectUuid); }

const char* PDriverSerial::pluginSubTypeName() const { return "serial"; }

IInstructionTarget::EnOpening PDriverSerial::openInstruction(quint64 instructionId, const QString& instruction,
                                                             const QVariantMap& parameters,
                                                             IInstructionReplySink* sink, QString* refusal)
{
    const InstructionOpener opener = openerOf(instruction);
    if (!opener) {
        *refusal = QStringLiteral("unknown instruction \"%1\"").arg(instruction);
        return CeOpRefused;
    }
    return (this->*opener)(instructionId, parameters, sink, refusal);
}

// Only listeners stay open; one-shot instructions have already ended.
void PDriverSerial::closeInstruction(quint64 instructionId) { m_listeners.remove(instructionId); }

PDriverSerial::InstructionOpener PDriverSerial::openerOf(const QString& instruction)
{
    static const QHash<QString, InstructionOpener> openers{
        {QStringLiteral("changeDevicePath"), &PDriverSerial::openChangeDevicePath},
        {QStringLiteral("closeConnection"), &PDriverSerial::openCloseConnection},
        {QStringLiteral("write"), &PDriverSerial::openWrite},
        {QStringLiteral("listenEventsData"), &PDriverSerial::openListenEventsData},
        {QStringLiteral("setKeepAliveFonction"), &PDriverSerial::openSetKeepAlive},
    };
    return openers.value(instruction, nullptr);
}

IInstructionTarget::EnOpening PDriverSerial::openChangeDevicePath(quint64 instructionId,
                                                                  const QVariantMap& parameters,
                                                                  IInstructionReplySink* sink, QString* refusal)
{
    DSerialSettings settings;
    if (!DSerialSettings::fromParameters(parameters, &settings, refusal))
        return CeOpRefused;
    QString error;
    const bool ok = m_link.open(settings, &error);
    QVariantMap reply = outcome(ok, error);
    reply.insert(QStringLiteral("results"),
                 QVariantMap{{QStringLiteral("doneOk"), ok}, {QStringLiteral("devicePath"), settings.devicePath()}});
    return answer(instructionId, sink, reply);
}

IInstructionTarget::EnOpening PDriverSerial::openCloseConnection(quint64 instructionId, const QVariantMap&,
                                                                 IInstructionReplySink* sink, QString*)
{
    m_link.close(QStringLiteral("closed on request"));
    return answer(instructionId, sink, outcome(true, QString()));
}

IInstructionTarget::EnOpening PDriverSerial::openWrite(quint64 instructionId, const QVariantMap& parameters,
                                                       IInstructionReplySink* sink, QString* refusal)
{
    const QByteArray frame = parameters.value(c_frame).toByteArray();
    if (frame.isEmpty()) {
        *refusal = QStringLiteral("\"write\" needs a non-empty \"frame\"");
        return CeOpRefused;
    }
    QString error;
    const bool ok = m_link.write(frame, &error);
    return answer(instructionId, sink, outcome(ok, error));
}

// Both the bare form and {"subscription": true, "validator": tag}; the tag tells
// the passive listener ("listen") from the tool commands' transactions.
IInstructionTarget::EnOpening PDriverSerial::openListenEventsData(quint64 instructionId,
                                                                  const QVariantMap& parameters,
                                                                  IInstructionReplySink* sink, QString*)
{
    m_listeners.add(instructionId, parameters.value(QStringLiteral("validator")).toString(), sink);
    return CeOpStream;
}

IInstructionTarget::EnOpening PDriverSerial::openSetKeepAlive(quint64 instructionId, const QVariantMap& parameters,
                                                              IInstructionReplySink* sink, QString* refusal)
{
    const QByteArray frame = parameters.value(c_frame).toByteArray();
    const int silenceMs = parameters.value(QStringLiteral("timeout")).toInt();
    if (frame.isEmpty() || silenceMs <= 0) {
        *refusal = QStringLiteral("\"setKeepAliveFonction\" needs a \"frame\" and a \"timeout\" above 0 ms");
        return CeOpRefused;
    }
    m_keepAlive.configure(frame, parameters.value(QStringLiteral("responseFrame")).toByteArray(),
                          parameters.value(QStringLiteral("ackFrame")).toByteArray(), silenceMs);
    return answer(instructionId, sink, outcome(true, QString()));
}

IInstructionTarget::EnOpening PDriverSerial::answer(quint64 instructionId, IInstructionReplySink* sink,
                                                    const QVariantMap& reply)
{
    sink->instructionReply(instructionId, reply);
    sink->instructionEnded(instructionId);
    return CeOpOneShot;
}

void PDriverSerial::onBytesRead(const QByteArray& bytes)
{
    const QByteArray chunk = m_keepAlive.filter(bytes);
    if (!chunk.isEmpty())
        m_listeners.deliver(chunk);
}

void PDriverSerial::onPortLost() { m_listeners.endAll(); }
