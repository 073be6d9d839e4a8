#include "d_identify_request.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

QString DIdentifyRequest::socketPath(const QString& journal)
{
    const QFileInfo file(journal);
    return file.absolutePath() + QLatin1Char('/') + file.completeBaseName() + QStringLiteral(".sock");
}

QByteArray DIdentifyRequest::request(int part, const QString& value)
{
    return QJsonDocument(QJsonObject{{"part", part}, {"value", value}}).toJson(QJsonDocument::Compact) + '\n';
}

bool DIdentifyRequest::readRequest(const QByteArray& line, int* part, QString* value)
{
    const QJsonObject object = QJsonDocument::fromJson(line).object();
    if (!object.value("part").isDouble() || !object.value("value").isString())
        return false;
    *part = object.value("part").toInt();
    *value = object.value("value").toString();
    return true;
}

QByteArray DIdentifyRequest::reply(const QString& error)
{
    const QJsonObject object = error.isEmpty() ? QJsonObject{{"ok", true}} : QJsonObject{{"error", error}};
    return QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
}

bool DIdentifyRequest::readReply(const QByteArray& line, QString* error)
{
    const QJsonObject object = QJsonDocument::fromJson(line).object();
    if (object.value("ok").toBool())
        return true;
    *error = object.contains("error") ? object.value("error").toString()
                                      : QStringLiteral("the service gave no answer that hytorc understands");
    return false;
}
