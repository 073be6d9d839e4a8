#include "d_mqtt_settings.h"

#include <QFile>
#include <QHostAddress>
#include <QUrl>

namespace {

constexpr int c_mqttPort = 1883;
constexpr int c_mqttsPort = 8883;

} // namespace

QList<DStationConfig::DKey> DMqttSettings::configKeys(const QString& clientIdDefault)
{
    const auto nonEmpty = [](const QString& text) { return !text.trimmed().isEmpty(); };
    return {
        {QStringLiteral("mqtt"), QString(), QStringLiteral("mqtt://host:port or mqtts://host:port"),
         [](const QString& text) { return DMqttSettings().setUrl(text); },
         QStringLiteral("The plant's MQTT broker (port 1883 or 8883 when left out).")},
        {QStringLiteral("mqtt-ca"), QString(), QStringLiteral("a readable PEM file"), DStationConfig::readableFile(),
         QStringLiteral("The authority the mqtts:// broker's certificate is checked against. Default: the system's.")},
        {QStringLiteral("mqtt-cert"), QString(), QStringLiteral("a readable PEM file"), DStationConfig::readableFile(),
         QStringLiteral("The client certificate for mqtts://, with --mqtt-key.")},
        {QStringLiteral("mqtt-key"), QString(), QStringLiteral("a readable PEM file"), DStationConfig::readableFile(),
         QStringLiteral("The private key of --mqtt-cert.")},
        {QStringLiteral("mqtt-user"), QString(), QStringLiteral("a user name"), nonEmpty,
         QStringLiteral("The user name at the broker, with --mqtt-password-file.")},
        {QStringLiteral("mqtt-password-file"), QString(), QStringLiteral("a readable file"), DStationConfig::readableFile(),
         QStringLiteral("A file whose first line is the broker password.")},
        {QStringLiteral("mqtt-client-id"), QString(), QStringLiteral("a client id of 1 to 65535 bytes"),
         [](const QString& text) { return !text.isEmpty() && text.toUtf8().size() <= 65535; },
         QStringLiteral("The MQTT client id. Default: %1.").arg(clientIdDefault)},
    };
}

bool DMqttSettings::validTopic(const QString& text)
{
    return !text.isEmpty() && !text.contains(QLatin1Char('#')) && !text.contains(QLatin1Char('+'))
        && !text.startsWith(QLatin1Char('/')) && !text.endsWith(QLatin1Char('/'));
}

bool DMqttSettings::read(const DStationConfig& config, const QString& clientIdDefault, QString* error)
{
    setUrl(config.value(QStringLiteral("mqtt")));
    caFile = config.value(QStringLiteral("mqtt-ca"));
    certFile = config.value(QStringLiteral("mqtt-cert"));
    keyFile = config.value(QStringLiteral("mqtt-key"));
    user = config.value(QStringLiteral("mqtt-user")).trimmed();
    clientId = config.isSet(QStringLiteral("mqtt-client-id")) ? config.value(QStringLiteral("mqtt-client-id"))
                                                               : clientIdDefault;
    if (!tls && !(caFile + certFile + keyFile).isEmpty()) {
        *error = QStringLiteral("mqtt-ca, mqtt-cert and mqtt-key need an mqtts:// broker, not %1").arg(url());
        return false;
    }
    if (certFile.isEmpty() != keyFile.isEmpty()) {
        *error = QStringLiteral("mqtt-cert and mqtt-key go together: give both or neither");
        return false;
    }
    const QString passwordFile = config.value(QStringLiteral("mqtt-password-file"));
    if (passwordFile.isEmpty() != user.isEmpty()) {
        *error = QStringLiteral("mqtt-user and mqtt-password-file go together: give both or neither");
        return false;
    }
    QFile file(passwordFile);
    if (!passwordFile.isEmpty() && file.open(QIODevice::ReadOnly))
        password = QString::fromUtf8(file.readLine()).remove(QLatin1Char('\n')).remove(QLatin1Char('\r'));
    return true;
}

QString DMqttSettings::url() const
{
    const bool v6 = QHostAddress(host).protocol() == QAbstractSocket::IPv6Protocol;
    return QStringLiteral("%1://%2:%3").arg(tls ? QStringLiteral("mqtts") : QStringLiteral("mqtt"),
                                           v6 ? QLatin1Char('[') + host + QLatin1Char(']') : host).arg(port);
}

bool DMqttSettings::setUrl(const QString& text)
{
    const QUrl parsed(text.trimmed(), QUrl::StrictMode);
    const QString scheme = parsed.scheme();
    if (!parsed.isValid() || (scheme != QLatin1String("mqtt") && scheme != QLatin1String("mqtts"))
        || parsed.host().isEmpty() || !parsed.userInfo().isEmpty() || !(parsed.path().isEmpty() || parsed.path() == QLatin1String("/"))
        || parsed.hasQuery() || parsed.hasFragment())
        return false;
    tls = scheme == QLatin1String("mqtts");
    host = parsed.host();
    port = parsed.port(tls ? c_mqttsPort : c_mqttPort);
    return port > 0;
}
