#include "d_argument_converter.h"

#include "d_close_names.h"

#include <QJsonDocument>
#include <QRegularExpression>

#include <functional>
#include <limits>

namespace {

// How a command of the device plug-in reads a value after the workstation's conversion
// to its type: its own rule for a value out of its use.
struct DReadingRule {
    const char* command;
    const char* parameter;
    std::function<QString(const QVariant&)> read;
};

const DReadingRule c_readingRules[] = {
    {"setLock", "lock", [](const QVariant& v) { return v.toBool() ? QStringLiteral("true (lock)")
                                                                   : QStringLiteral("false (unlock)"); }},
    {"setPingInterval", "interval", [](const QVariant& v) { return QString::number(v.toInt() < 1 ? 150 : v.toInt()); }},
};

} // namespace

bool DArgumentConverter::convert(const QString& command, const QVariantList& declared,
                                 const QStringList& assignments, DOrderArguments* order, QString* message)
{
    QHash<QString, QString> types;
    QStringList names;
    for (const QVariant& d : declared) {
        const QVariantMap declaration = d.toMap();
        names << declaration.value(QStringLiteral("name")).toString();
        types.insert(names.last(), declaration.value(QStringLiteral("type")).toString());
    }
    for (const QString& assignment : assignments) {
        const int at = assignment.indexOf(QLatin1Char('='));
        const QString name = assignment.left(at);
        const QString text = assignment.mid(at + 1);
        if (name.isEmpty()) {
            *message = QStringLiteral("parameter \"%1\" has no name").arg(assignment);
            return false;
        }
        // Some commands read parameters they do not declare (searchAndConnect serialId); one close
        // to a declared name is a typo, which must not reach the tool as a missing value.
        const QString meant = types.contains(name) ? QString() : DCloseNames::closest(name, names);
        if (!meant.isEmpty()) {
            *message = QStringLiteral("unknown parameter \"%1\" (did you mean %2?)").arg(name, meant);
            return false;
        }
        if (!types.contains(name))
            order->undeclared << name;
        const QString type = types.value(name, QStringLiteral("QString"));
        *message = rangeError(type, text);
        if (!message->isEmpty()) {
            *message = QStringLiteral("%1=%2 %3").arg(name, text, *message);
            return false;
        }
        QVariant value;
        // A value that does not fit its type reaches the command as text, as the host
        // passes it: the command's own rule for a bad value applies, and is told.
        const bool fits = convertValue(type, text, &value);
        order->arguments.insert(name, fits ? value : QVariant(text));
        const QString read = fits ? QString() : reading(command, name, type, text);
        if (!read.isEmpty())
            order->notes << QStringLiteral("%1 reads %2=%3 as %4").arg(command, name, text, read);
    }
    *message = missingParameter(declared, order->arguments);
    return message->isEmpty();
}

// A declared parameter without a default has no value the command could fall back on.
QString DArgumentConverter::missingParameter(const QVariantList& declared, const QVariantMap& given)
{
    for (const QVariant& d : declared) {
        const QVariantMap declaration = d.toMap();
        const QString name = declaration.value(QStringLiteral("name")).toString();
        if (!given.contains(name) && !declaration.value(QStringLiteral("default")).isValid())
            return QStringLiteral("no %1 given (%1=VALUE: %2)")
                .arg(name, declaration.value(QStringLiteral("description")).toString());
    }
    return QString();
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

// A whole number the type cannot hold would reach the command wrapped round: refused.
QString DArgumentConverter::rangeError(const QString& type, const QString& text)
{
    static const QRegularExpression whole(QStringLiteral("^\\s*[+-]?\\d+\\s*$"));
    const bool isInt = type == QLatin1String("int");
    if ((!isInt && type != QLatin1String("uint")) || !whole.match(text).hasMatch())
        return QString();
    bool ok = false;
    isInt ? text.trimmed().toInt(&ok) : text.trimmed().toUInt(&ok);
    if (ok)
        return QString();
    return QStringLiteral("is out of range: the command takes whole numbers from %1 to %2")
        .arg(isInt ? qint64(std::numeric_limits<int>::min()) : 0)
        .arg(isInt ? qint64(std::numeric_limits<int>::max()) : qint64(std::numeric_limits<uint>::max()));
}

// What the command makes of `given`, a text of the wrong type: the host's conversion to the
// declared type, then the command's own rule. Empty when nothing is known.
QString DArgumentConverter::reading(const QString& command, const QString& name, const QString& type,
                                    const QVariant& given)
{
    for (const DReadingRule& rule : c_readingRules) {
        if (command == QLatin1String(rule.command) && name == QLatin1String(rule.parameter))
            return rule.read(given);
    }
    if (type == QLatin1String("bool"))
        return given.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    if (type == QLatin1String("int"))
        return QString::number(given.toInt());
    return QString();
}
