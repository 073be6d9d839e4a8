#include "d_station_config.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFileInfo>
#include <QSettings>

namespace {
const QString c_configOption = QStringLiteral("config");
const QString c_verboseOption = QStringLiteral("verbose");
} // namespace

DStationConfig::DStationConfig(const QList<DKey>& keys, const QString& description)
    : m_keys(keys)
    , m_description(description)
{
}

bool DStationConfig::parse(const QStringList& arguments, QString* message, bool* helpShown)
{
    *helpShown = false;
    QCommandLineParser parser;
    parser.setApplicationDescription(m_description);
    const QString tryHelp = QStringLiteral(" (try: %1 --help)").arg(QCoreApplication::applicationName());
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    parser.addOption({c_configOption, QStringLiteral("Reads the settings of FILE (INI; options win)."),
                      QStringLiteral("file")});
    parser.addOption({c_verboseOption, QStringLiteral("Every log line, retries included.")});
    for (const DKey& key : m_keys)
        parser.addOption({key.name, key.help + (key.defaultValue.isEmpty() ? QString()
                                                                          : QStringLiteral(" Default: %1.").arg(key.defaultValue)),
                          key.flag ? QString() : QStringLiteral("value")});
    if (!parser.parse(arguments)) {
        *message = parser.errorText() + tryHelp;
        return false;
    }
    if (parser.isSet(help) || parser.isSet(version)) {
        *helpShown = true;
        *message = parser.isSet(help) ? parser.helpText()
                                      : QCoreApplication::applicationName() + QLatin1Char(' ')
                                            + QCoreApplication::applicationVersion() + QLatin1Char('\n');
        return false;
    }
    if (!parser.positionalArguments().isEmpty()) {
        *message = QStringLiteral("unexpected argument \"%1\"").arg(parser.positionalArguments().first()) + tryHelp;
        return false;
    }
    m_verbose = parser.isSet(c_verboseOption);
    if (parser.isSet(c_configOption) && !readFile(parser.value(c_configOption), message))
        return false;
    for (const DKey& key : m_keys) {
        const QString value = key.flag ? QStringLiteral("true") : parser.value(key.name);
        if (parser.isSet(key.name) && !take(QStringLiteral("--") + key.name, key.name, value, message))
            return false;
    }
    return true;
}

bool DStationConfig::readFile(const QString& path, QString* message)
{
    const QFileInfo file(path);
    if (!file.isFile() || !file.isReadable()) {
        *message = QStringLiteral("%1: cannot read the file").arg(path);
        return false;
    }
    QSettings settings(path, QSettings::IniFormat);
    if (settings.status() != QSettings::NoError) {
        *message = QStringLiteral("%1: not an INI file (key = value lines)").arg(path);
        return false;
    }
    for (const QString& name : settings.allKeys()) {
        if (name == c_verboseOption) {
            m_verbose = QVariant(settings.value(name)).toBool();
            continue;
        }
        if (!take(path, name, settings.value(name).toString(), message))
            return false;
    }
    return true;
}

bool DStationConfig::take(const QString& source, const QString& name, const QString& value, QString* message)
{
    const DKey* key = find(name);
    if (!key) {
        QStringList known;
        for (const DKey& each : m_keys)
            known << each.name;
        *message = QStringLiteral("%1: unknown key \"%2\" (known: %3)").arg(source, name, known.join(QStringLiteral(", ")));
        return false;
    }
    if (key->valid && !key->valid(value)) {
        *message = source.startsWith(QLatin1String("--"))
                       ? QStringLiteral("%1: \"%2\" is not allowed (allowed: %3)").arg(source, value, key->allowed)
                       : QStringLiteral("%1: key \"%2\": \"%3\" is not allowed (allowed: %4)")
                             .arg(source, name, value, key->allowed);
        return false;
    }
    m_values.insert(name, value);
    return true;
}

const DStationConfig::DKey* DStationConfig::find(const QString& name) const
{
    for (const DKey& key : m_keys) {
        if (key.name == name)
            return &key;
    }
    return nullptr;
}

QString DStationConfig::value(const QString& name) const
{
    if (m_values.contains(name))
        return m_values.value(name);
    const DKey* key = find(name);
    return key ? key->defaultValue : QString();
}

int DStationConfig::intValue(const QString& name) const { return value(name).trimmed().toInt(); }

bool DStationConfig::isSet(const QString& name) const { return m_values.contains(name); }

std::function<bool(const QString&)> DStationConfig::integer(qint64 minimum, qint64 maximum)
{
    return [minimum, maximum](const QString& text) {
        bool ok = false;
        const qint64 number = text.trimmed().toLongLong(&ok);
        return ok && number >= minimum && number <= maximum;
    };
}

std::function<bool(const QString&)> DStationConfig::readableFile()
{
    return [](const QString& text) { return QFileInfo(text).isFile() && QFileInfo(text).isReadable(); };
}
