#include "d_mqtt_link.h"

#include "d_message_handler.h"

#include <QCoreApplication>
#include <QtDebug>

#include <mosquitto.h>

#include <atomic>
#include <chrono>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace {

constexpr int c_keepAliveSeconds = 20;  // beyond c_answerMs: an unanswered CONNECT is ours to give up
constexpr int c_answerMs = 10000;
// A plant expects results again within seconds of its broker's return: the wait stays short.
constexpr int c_maxBackoffSeconds = 5;
constexpr int c_loopMs = 100;  // how soon the session's thread sees that it is no longer wanted
const char* const c_systemAuthorities = "/etc/ssl/certs";

enum EnEvent { CeSessionConnected, CeSessionRefused, CeSessionAcked, CeSessionMessages, CeSessionEnded };

// MQTT 3.1.1's CONNACK codes for a login the broker does not take.
constexpr int c_badCredentials = 4;
constexpr int c_notAuthorised = 5;

} // namespace

// One connection attempt, shared by the link and the thread that runs it; the last of the two
// to let go destroys the client. The link may let go while a name lookup still blocks the thread.
struct DMqttSession {
    enum EnCommand { CeRun, CeClose, CeAbandon };

    ~DMqttSession()
    {
        if (client)
            mosquitto_destroy(client);
    }
    void tell(int event, int value)
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (deliver)
            deliver(event, value);
    }
    // Acknowledgements come by the thousand per second: one queued call takes all that came before it.
    void acknowledge(int messageId)
    {
        std::lock_guard<std::mutex> lock(mutex);
        acks.push_back(messageId);
        if (deliver && !acksPosted)
            deliver(CeSessionAcked, 0);
        acksPosted = true;
    }
    std::vector<int> takeAcks()
    {
        std::lock_guard<std::mutex> lock(mutex);
        acksPosted = false;
        return std::move(acks);
    }
    // Messages too: one queued call takes all that came before it.
    void receive(const mosquitto_message* message)
    {
        std::lock_guard<std::mutex> lock(mutex);
        messages.push_back({QByteArray(message->topic),
                            QByteArray(static_cast<const char*>(message->payload), message->payloadlen)});
        if (deliver && !messagesPosted)
            deliver(CeSessionMessages, 0);
        messagesPosted = true;
    }
    std::vector<std::pair<QByteArray, QByteArray>> takeMessages()
    {
        std::lock_guard<std::mutex> lock(mutex);
        messagesPosted = false;
        return std::move(messages);
    }
    void finish(int rc)
    {
        std::lock_guard<std::mutex> lock(mutex);
        finished = true;
        if (deliver)
            deliver(CeSessionEnded, rc);
        ended.notify_all();
    }

    mosquitto* client = nullptr;
    std::atomic<int> command{CeRun};
    std::mutex mutex;  // guards deliver, finished and the acknowledgements
    std::condition_variable ended;
    bool finished = false;
    std::vector<int> acks;
    bool acksPosted = false;
    std::vector<std::pair<QByteArray, QByteArray>> messages;  // topic, payload
    bool messagesPosted = false;
    std::function<void(int event, int value)> deliver;  // a queued call to the link; empty once it let go
};

namespace {

void onConnect(mosquitto*, void* session, int rc)
{
    static_cast<DMqttSession*>(session)->tell(rc == 0 ? CeSessionConnected : CeSessionRefused, rc);
}

void onPublish(mosquitto*, void* session, int messageId)
{
    static_cast<DMqttSession*>(session)->acknowledge(messageId);
}

void onMessage(mosquitto*, void* session, const mosquitto_message* message)
{
    static_cast<DMqttSession*>(session)->receive(message);
}

// The session's thread: the lookup, the connection and every byte to and from the broker.
void runSession(std::shared_ptr<DMqttSession> session, const std::string& host, int port)
{
    mosquitto* client = session->client;
    int rc = mosquitto_connect_async(client, host.c_str(), port, c_keepAliveSeconds);
    while (rc == MOSQ_ERR_SUCCESS && session->command == DMqttSession::CeRun)
        rc = mosquitto_loop(client, c_loopMs, 1);
    if (rc == MOSQ_ERR_SUCCESS && session->command == DMqttSession::CeClose) {
        // What was queued goes out before the DISCONNECT.
        mosquitto_disconnect(client);
        while (rc == MOSQ_ERR_SUCCESS && session->command == DMqttSession::CeClose)
            rc = mosquitto_loop(client, c_loopMs, 1);
    }
    // errno belongs to this thread: a system error is handed on as its negated number.
    session->finish(rc == MOSQ_ERR_ERRNO ? -errno : rc);
}

} // namespace

DMqttLink::DMqttLink(const DMqttSettings& settings, QObject* parent)
    : QObject(parent)
    , m_settings(settings)
{
    static const int initialised = mosquitto_lib_init();
    Q_UNUSED(initialised)
    m_retry.setSingleShot(true);
    m_answer.setSingleShot(true);
    connect(&m_retry, &QTimer::timeout, this, &DMqttLink::connectToBroker);
    connect(&m_answer, &QTimer::timeout, this, [this] {
        dropSession();
        waitAndRetry(QStringLiteral("no answer within %1 s").arg(c_answerMs / 1000));
    });
}

DMqttLink::~DMqttLink()
{
    dropSession();
}

void DMqttLink::open()
{
    connectToBroker();
}

void DMqttLink::close(int graceMs)
{
    m_retry.stop();
    m_answer.stop();
    if (m_session) {
        m_session->command = DMqttSession::CeClose;
        std::unique_lock<std::mutex> lock(m_session->mutex);
        m_session->ended.wait_for(lock, std::chrono::milliseconds(graceMs), [this] { return m_session->finished; });
    }
    m_state = CeIdle;
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
    dropSession();
}

void DMqttLink::setWill(const QByteArray& topic, const QByteArray& payload)
{
    m_willTopic = topic;
    m_willPayload = payload;
}

int DMqttLink::publish(const QByteArray& topic, const QByteArray& payload, bool retain)
{
    if (!m_session || m_state != CeConnected)
        return 0;
    int messageId = 0;
    const int rc = mosquitto_publish(m_session->client, &messageId, topic.constData(), payload.size(),
                                     payload.constData(), 1, retain);
    // A lost connection is said by the session's end; anything else would be a fault of ours.
    if (rc != MOSQ_ERR_SUCCESS && rc != MOSQ_ERR_NO_CONN)
        qWarning().noquote() << QStringLiteral("mqtt: cannot publish to %1: %2").arg(QString::fromUtf8(topic), QString::fromUtf8(mosquitto_strerror(rc)));
    return rc == MOSQ_ERR_SUCCESS ? messageId : 0;
}

void DMqttLink::connectToBroker()
{
    auto session = std::make_shared<DMqttSession>();
    session->client = mosquitto_new(m_settings.clientId.toUtf8().constData(), m_settings.cleanSession, session.get());
    if (!session->client)
        return waitAndRetry(QStringLiteral("no MQTT client: %1").arg(QString::fromLocal8Bit(std::strerror(errno))));
    mosquitto* client = session->client;
    mosquitto_threaded_set(client, true);
    mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V311);
    mosquitto_int_option(client, MOSQ_OPT_SEND_MAXIMUM, c_maxInFlight);
    mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1);  // a result goes out now, not with the next one
    mosquitto_connect_callback_set(client, onConnect);
    mosquitto_publish_callback_set(client, onPublish);
    mosquitto_message_callback_set(client, onMessage);
    if (!m_willTopic.isEmpty())
        mosquitto_will_set(client, m_willTopic.constData(), m_willPayload.size(), m_willPayload.constData(), 1, true);
    if (!m_settings.user.isEmpty())
        mosquitto_username_pw_set(client, m_settings.user.toUtf8().constData(), m_settings.password.toUtf8().constData());
    if (m_settings.tls) {
        const auto orNull = [](const QByteArray& text) { return text.isEmpty() ? nullptr : text.constData(); };
        const QByteArray ca = m_settings.caFile.toLocal8Bit();
        const QByteArray cert = m_settings.certFile.toLocal8Bit();
        const QByteArray key = m_settings.keyFile.toLocal8Bit();
        const int rc = mosquitto_tls_set(client, orNull(ca), ca.isEmpty() ? c_systemAuthorities : nullptr, orNull(cert),
                                         orNull(key), nullptr);
        if (rc != MOSQ_ERR_SUCCESS)
            return waitAndRetry(QStringLiteral("TLS set-up: %1").arg(QString::fromUtf8(mosquitto_strerror(rc))));
    }
    const quint64 generation = m_generation;
    session->deliver = [this, generation](int event, int value) {
        QMetaObject::invokeMethod(this, [this, generation, event, value] { onSessionEvent(generation, event, value); },
                                  Qt::QueuedConnection);
    };
    m_session = session;
    m_state = CeConnecting;
    m_answer.start(c_answerMs);
    std::thread(runSession, session, m_settings.host.toStdString(), m_settings.port).detach();
}

// News of the current session; a dropped session's late news is ignored.
void DMqttLink::onSessionEvent(quint64 generation, int event, int value)
{
    if (generation != m_generation)
        return;
    switch (event) {
    case CeSessionAcked:
        for (const int messageId : m_session->takeAcks())
            emit sigAcknowledged(messageId);
        return;
    case CeSessionMessages:
        for (const auto& message : m_session->takeMessages())
            emit sigMessage(message.first, message.second);
        return;
    case CeSessionConnected:
        m_answer.stop();
        m_state = CeConnected;
        m_backoffSeconds = 1;
        m_failing = false;
        m_refusal.clear();
        DMessageHandler::say(QStringLiteral("mqtt: connected to the broker %1").arg(url()));
        for (const QByteArray& topic : qAsConst(m_subscriptions))
            mosquitto_subscribe(m_session->client, nullptr, topic.constData(), 1);
        emit sigConnected();
        return;
    case CeSessionRefused:
        m_refusal = QString::fromUtf8(mosquitto_connack_string(value));
        m_loginRefused = value == c_badCredentials || value == c_notAuthorised;
        return;
    default:
        if (m_state == CeIdle)
            return;
        const QString reason = !m_refusal.isEmpty() ? QStringLiteral("refused: ") + m_refusal
                               : value < 0          ? QString::fromLocal8Bit(std::strerror(-value))
                                                    : QString::fromUtf8(mosquitto_strerror(value));
        m_refusal.clear();
        dropSession();
        waitAndRetry(reason, value == -ECONNREFUSED);
    }
}

// Its news still on the way is ignored from now on.
void DMqttLink::dropSession()
{
    if (!m_session)
        return;
    ++m_generation;
    m_session->command = DMqttSession::CeAbandon;
    {
        std::lock_guard<std::mutex> lock(m_session->mutex);
        m_session->deliver = nullptr;
    }
    m_session.reset();
}

// The first failure after a connection (or after the start) is said; the retries after it only with --verbose.
void DMqttLink::waitAndRetry(const QString& reason, bool portClosed)
{
    const bool wasConnected = m_state == CeConnected;
    const int waitSeconds = portClosed ? 1 : m_backoffSeconds;
    const QString next = QStringLiteral("next try in %1 s").arg(waitSeconds);
    if (m_loginRefused && !m_failing)
        DMessageHandler::say(QStringLiteral("mqtt: the broker %1 refused the login (not authorised): check mqtt-user and "
                                            "mqtt-password-file; %2").arg(url(), next));
    else if (wasConnected)
        DMessageHandler::say(QStringLiteral("mqtt: broker lost (%1); %2, the wait doubling to %3 s")
                                 .arg(reason, next).arg(c_maxBackoffSeconds));
    else if (!m_failing)
        DMessageHandler::say(QStringLiteral("mqtt: cannot reach the broker %1 (%2); %3, the wait doubling to %4 s")
                                 .arg(url(), reason, next).arg(c_maxBackoffSeconds));
    else
        qInfo().noquote() << QStringLiteral("mqtt: still no broker at %1 (%2); %3").arg(url(), reason, next);
    m_failing = true;
    m_loginRefused = false;
    m_state = CeWaiting;
    m_retry.start(waitSeconds * 1000);
    if (!portClosed)
        m_backoffSeconds = qMin(m_backoffSeconds * 2, c_maxBackoffSeconds);
    if (wasConnected)
        emit sigLost();
}
