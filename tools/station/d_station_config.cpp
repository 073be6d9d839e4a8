#include "d_station_config.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFileInfo>
#include <QSettings>

namespace {
const QString c_configOption = QStringLiteral("config");
const QString c_verboseOption = QStringLiteral("verbose");
const QString c_checkOption = QStringLiteral("check-config");
} // namespace

DStationConfig::DStationConfig(const QList<DKey>& keys, const QString& description, const QStringList& sectionPrefixes)
    : m_keys(keys)
    , m_description(description)
    , m_sectionPrefixes(sectionPrefixes)
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
    const bool sections = !m_sectionPrefixes.isEmpty();  // what --check-config prints
    if (sections)
        parser.addOption({c_checkOption, QStringLiteral("Prints the resolved settings (the programs' table) and exits.")});
    for (const DKey& key : m_keys) {
        const QString help = key.help + (key.defaultValue.isEmpty() ? QString() : QStringLiteral(" Default: %1.").arg(key.defaultValue));
        parser.addOption(key.flag ? QCommandLineOption(key.name, help) : QCommandLineOption(key.name, help, QStringLiteral("value")));
    }
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
    m_checkOnly = sections && parser.isSet(c_checkOption);
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
    m_filePath = path;
    for (const QString& name : settings.allKeys()) {
        // An unquoted value with commas comes back as a list: the text as written, in one piece.
        const QVariant raw = settings.value(name);
        const QString value = raw.userType() == QMetaType::QStringList ? raw.toStringList().join(QLatin1Char(','))
                                                                      : raw.toString();
        if (name == c_verboseOption) {
            m_verbose = QVariant(value).toBool();
            continue;
        }
        if (name.contains(QLatin1Char('/')) ? !takeSectionKey(path, name, value, message)
                                            : !take(path, name, value, message))
            return false;
    }
    return true;
}

bool DStationConfig::takeSectionKey(const QString& path, const QString& name, const QString& value, QString* message)
{
    const QString section = name.section(QLatin1Char('/'), 0, 0);
    for (const QString& prefix : qAsConst(m_sectionPrefixes)) {
        if (section.startsWith(prefix)) {
            m_sections[section].insert(name.section(QLatin1Char('/'), 1), value.trimmed());
            return true;
        }
    }
    *message = QStringLiteral("%1: unknown section [%2] (known: %3)")
                   .arg(path, section, m_sectionPrefixes.join(QStringLiteral("N, ")) + QLatin1Char('N'));
    return false;
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
