#ifndef D_STATION_CONFIG_H
#define D_STATION_CONFIG_H

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>

// A station program's settings: an INI file (--config FILE, keys at its top level) and the same
// keys as command-line options, which win. Each part of the program declares its own keys; a key
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
        bool flag = false;     // an option without a value: "true" when given
    };

    // `description` heads --help.
    DStationConfig(const QList<DKey>& keys, const QString& description);

    // Reads the file named by --config, then the options. False with one line in *message
    // (and *helpShown for --help or --version, whose text is then in *message).
    bool parse(const QStringList& arguments, QString* message, bool* helpShown);

    QString value(const QString& name) const;
    int intValue(const QString& name) const;
    // Whether the key was set by the file or an option, not only defaulted.
    bool isSet(const QString& name) const;
    bool verbose() const { return m_verbose; }

    // Validators the parts share.
    static std::function<bool(const QString&)> integer(qint64 minimum, qint64 maximum);
    static std::function<bool(const QString&)> readableFile();

private:
    bool readFile(const QString& path, QString* message);
    bool take(const QString& source, const QString& name, const QString& value, QString* message);
    const DKey* find(const QString& name) const;

    QList<DKey> m_keys;
    QString m_description;
    QHash<QString, QString> m_values;
    bool m_verbose = false;
};

#endif // D_STATION_CONFIG_H
