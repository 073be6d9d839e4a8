#ifndef D_STATION_CONFIG_H
#define D_STATION_CONFIG_H

#include <QHash>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

#include <functional>

// A station program's settings: an INI file (--config FILE, keys at its top level) and the same
// keys as command-line options, which win; sections whose names start with a declared prefix
// ([program.3]) are kept for the part that reads them. Each part of the program declares its own keys; a key
// nobody declared, a bad value or an unreadable file is one line naming the file, the key and
// what is allowed.
class DStationConfig
{
public:
    struct DKey {
        QString name;          // "op-port": the option --op-port and the file's key op-port
        QString defaultValue;  // empty: the part computes its own default
        QString allowed;       // what the error line says is allowed ("a port, 0 to 65535")
        std::function<bool(const QString&)> valid;  // null: any text
        QString help;
        bool flag = false;     // an option without a value (it means true); true or false in the file
    };

    // A section's keys and values, by section name ("program.3").
    using DSections = QMap<QString, QMap<QString, QString>>;

    // `description` heads --help.
    DStationConfig(const QList<DKey>& keys, const QString& description, const QStringList& sectionPrefixes = {});

    // Reads the file named by --config, then the options. False with one line in *message
    // (and *helpShown for --help or --version, whose text is then in *message).
    bool parse(const QStringList& arguments, QString* message, bool* helpShown);

    QString value(const QString& name) const;
    int intValue(const QString& name) const;
    // Whether the key was set by the file or an option, not only defaulted.
    bool isSet(const QString& name) const;
    bool verbose() const { return m_verbose; }
    // --check-config: print the resolved settings and exit.
    bool checkOnly() const { return m_checkOnly; }
    // The file --config named; empty without one.
    QString filePath() const { return m_filePath; }
    const DSections& sections() const { return m_sections; }

    // Validators the parts share.
    static std::function<bool(const QString&)> integer(qint64 minimum, qint64 maximum);
    static std::function<bool(const QString&)> readableFile();

private:
    bool readFile(const QString& path, QString* message);
    bool take(const QString& source, const QString& name, const QString& value, QString* message);
    const DKey* find(const QString& name) const;

    bool takeSectionKey(const QString& path, const QString& name, const QString& value, QString* message);

    QList<DKey> m_keys;
    QString m_description;
    QStringList m_sectionPrefixes;
    QHash<QString, QString> m_values;
    DSections m_sections;
    QString m_filePath;
    bool m_verbose = false;
    bool m_checkOnly = false;
};

#endif // D_STATION_CONFIG_H
