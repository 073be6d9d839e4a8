#ifndef D_HYTORC_CHANNEL_H
#define D_HYTORC_CHANNEL_H

#include "d_object.h"

#include <QMap>
#include <QSharedPointer>
#include <QStringList>
#include <QVariant>

// One status value of the tool that the maintenance panel shows and can toggle
// (rotation direction, motor running, current preset).
class DHytorcChannel : public DObject
{
    Q_OBJECT
    Q_PROPERTY(QString id READ id WRITE setId NOTIFY idChanged)
    Q_PROPERTY(QString name READ name WRITE setName NOTIFY nameChanged)
    Q_PROPERTY(QString label READ label WRITE setLabel NOTIFY labelChanged)
    Q_PROPERTY(QVariant value READ value NOTIFY valueChanged)
    Q_PROPERTY(EnChannelType type READ type WRITE setType NOTIFY typeChanged)
public:
    // Backed by int: "type" is stored as given, any number a valid value.
    enum EnChannelType : int { CeCtUnknown = 0, CeCtString = 1, CeCtBool = 2, _CeCtNbr = 3 };
    Q_ENUM(EnChannelType)

    // The type of each known channel, by id.
    static const QMap<QString, EnChannelType> c_channelTypesMap;
    // The tool's rotation direction codes, as shown.
    static const QStringList c_directionCodeToString;

    explicit DHytorcChannel(QObject* parent = nullptr);

    // From {"id", "name", "value", "type"}; null for an empty map. "type" alone sets the
    // type, stored as given (a missing one is CeCtUnknown).
    static QSharedPointer<DHytorcChannel> create(const QVariantMap& description);

    QString id() const;
    void setId(const QString& id);
    QString name() const;
    void setName(const QString& name);
    QString label() const;
    void setLabel(const QString& label);
    EnChannelType type() const;
    void setType(EnChannelType type);
    QVariant value() const;
    // Takes a one-element list (a direction code for "direction") or a boolean;
    // false, changing nothing, for anything else.
    bool setValue(const QVariant& value);

    QString readCommand() const;
    void setReadCommand(const QString& command);

signals:
    void idChanged();
    void nameChanged();
    void labelChanged();
    void valueChanged();
    void typeChanged();
    void sigSwitchChannelValue(const QString& channelId);

private:
    QString m_id;
    QString m_name;
    QString m_label;
    QVariant m_value;
    EnChannelType m_type = CeCtUnknown;
    QString m_readCommand;
};

#endif // D_HYTORC_CHANNEL_H
