#include "d_hytorc_channel.h"

#include "property_assign.h"

namespace {

const QString c_directionId = QStringLiteral("direction");

} // namespace

const QMap<QString, DHytorcChannel::EnChannelType> DHytorcChannel::c_channelTypesMap{
    {QStringLiteral("direction"), CeCtString},
    {QStringLiteral("motorRun"), CeCtBool},
    {QStringLiteral("currentPreset"), CeCtString}};

const QStringList DHytorcChannel::c_directionCodeToString{QStringLiteral("Fastening"), QStringLiteral("Loosening"),
                                                          QString(), QString()};

DHytorcChannel::DHytorcChannel(QObject* parent)
    : DObject(QStringLiteral("DHytorcChannel"), parent)
{
}

QSharedPointer<DHytorcChannel> DHytorcChannel::create(const QVariantMap& description)
{
    if (description.isEmpty())
        return {};
    QSharedPointer<DHytorcChannel> channel(new DHytorcChannel);
    channel->setId(description.value(QStringLiteral("id")).toString());
    channel->setName(description.value(QStringLiteral("name")).toString());
    // The description alone sets the type, stored as given: no type is CeCtUnknown.
    channel->m_type = EnChannelType(description.value(QStringLiteral("type")).toInt());
    emit channel->typeChanged();
    channel->setValue(description.value(QStringLiteral("value")));
    return channel;
}

QString DHytorcChannel::id() const { return m_id; }
void DHytorcChannel::setId(const QString& id)
{
    if (assignChanged(m_id, id))
        emit idChanged();
}

QString DHytorcChannel::name() const { return m_name; }
void DHytorcChannel::setName(const QString& name)
{
    if (assignChanged(m_name, name))
        emit nameChanged();
}

QString DHytorcChannel::label() const { return m_label; }
void DHytorcChannel::setLabel(const QString& label)
{
    if (assignChanged(m_label, label))
        emit labelChanged();
}

DHytorcChannel::EnChannelType DHytorcChannel::type() const { return m_type; }
void DHytorcChannel::setType(EnChannelType type)
{
    if (assignChanged(m_type, type))
        emit typeChanged();
}

QVariant DHytorcChannel::value() const { return m_value; }

bool DHytorcChannel::setValue(const QVariant& value)
{
    QVariant newValue;
    if (value.canConvert<QVariantList>()) {
        const QVariantList list = value.toList();
        if (list.size() == 1) {
            newValue = list.first();
            // Codes outside the table show as an empty text.
            if (m_id == c_directionId)
                newValue = c_directionCodeToString.value(newValue.toInt());
        }
    } else if (value.canConvert<bool>()) {
        // The new value is still empty here, so this always shows "Fastening",
        // whatever the boolean: the tool's panels rely on it as it is.
        newValue = c_directionCodeToString.at(newValue == QVariant(1) ? 1 : 0);
    } else {
        return false;
    }
    if (assignChanged(m_value, newValue))
        emit valueChanged();
    return true;
}

QString DHytorcChannel::readCommand() const { return m_readCommand; }
void DHytorcChannel::setReadCommand(const QString& command) { m_readCommand = command; }
