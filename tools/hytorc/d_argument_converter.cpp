#include "d_argument_converter.h"

#include <QJsonDocument>

bool DArgumentConverter::convert(const QVariantList& declared, const QStringList& assignments,
                                 QVariantMap* arguments, QString* message)
{
    QHash<QString, QString> types;
    for (const QVariant& d : declared) {
        const QVariantMap declaration = d.toMap();
        types.insert(declaration.value(QStringLiteral("name")).toString(),
                     declaration.value(QStringLiteral("type")).toString());
    }
    for (const QString& assignment : assignments) {
        const int at = assignment.indexOf(QLatin1Char('='));
        const QString name = assignment.left(at);
        const QString text = assignment.mid(at + 1);
        const QString type = types.value(name, QStringLiteral("QString"));
        QVariant value;
        if (name.isEmpty()) {
            *message = QStringLiteral("parameter %1 has no name").arg(assignment);
            return false;
        }
        // A value that does not fit its type reaches the command as text, as the host
        // passes it: the command's own rule for a bad value applies.
        arguments->insert(name, convertValue(type, text, &value) ? value : QVariant(text));
    }
    return true;
}

bool DArgumentConverter::convertValue(const QString& type, const QString& text, QVariant* value)
{
    bool ok = true;
    if (type == QLatin1String("bool")) {
        const QString word = text.toLower();
        ok = QStringList{"true", "false", "1", "0", "yes", "no", "on", "off"}.contains(word);
        *value = (word == QLatin1String("true") || word == QLatin1String("1") || word == QLatin1String("yes")
                  || word == QLatin1String("on"));
    } else if (type == QLatin1String("int")) {
        *value = text.toInt(&ok);
    } else if (type == QLatin1String("uint")) {
        *value = text.toUInt(&ok);
    } else if (type == QLatin1String("varM") || type == QLatin1String("varL")) {
        const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8());
        ok = type == QLatin1String("varM") ? document.isObject() : document.isArray();
        *value = document.toVariant();
    } else {
        *value = text;
    }
    return ok;
}
