#include "d_tool_state.h"

#include "hytorc_hcp_constants.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>

#include <climits>

namespace {

const int c_cycleCountIndex = c_toolInfoKeys.indexOf(QStringLiteral("cycle_count"));
const QStringList c_stateKeys{"toolInfo", "profiles", "activeProfile", "locked", "accessLevel", "pingInterval",
                              "battery"};

QString profileName(const QString& profile)
{
    return profile.section(QLatin1Char(','), 0, 0).trimmed();
}

bool readInt(const QJsonObject& object, const QString& key, int minimum, int maximum, int* target, QString* error)
{
    if (!object.contains(key))
        return true;
    const int value = object.value(key).toInt(minimum - 1);
    if (value < minimum || value > maximum) {
        *error = QStringLiteral("\"%1\" must be an integer from %2 to %3").arg(key).arg(minimum).arg(maximum);
        return false;
    }
    *target = value;
    return true;
}

}  // namespace

DToolState::DToolState()
    : m_toolInfo{"LION-2", "HYT24A0137", "2.4.1", "1.9.0", "1.2.3", "4.04", "1873", "2025-09-14", "PCB-C3"},
      // A draft line of two fields, which the host skips, and one with a field past the seventh.
      m_profiles{"P1,TQ,FTLB,120", "P2,TQA,NM,250.5,30,1,RH", "P3,TQ,NM,800,0,0,LH", "P4,TQA,FTLB,1500,45,2,RH",
                 "DRAFT,TQ", "P5,TQA,NM,420,60,1,RH,8"},
      m_activeProfile("P1"),
      m_accessLevel("L4")
{
}

bool DToolState::loadJson(const QString& path, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
        return false;
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (!document.isObject()) {
        *error = QStringLiteral("%1 is not a JSON object: %2").arg(path, parseError.errorString());
        return false;
    }
    const QJsonObject object = document.object();
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (!c_stateKeys.contains(it.key())) {
            *error = QStringLiteral("unknown key \"%1\" in %2").arg(it.key(), path);
            return false;
        }
    }
    return loadToolInfo(object, error) && loadProfiles(object, error) && loadSettings(object, error);
}

QJsonObject DToolState::toJson() const
{
    QJsonObject info;
    for (int i = 0; i < c_toolInfoKeys.size(); ++i)
        info.insert(c_toolInfoKeys.at(i), m_toolInfo.at(i));
    return {{"toolInfo", info},
            {"profiles", QJsonArray::fromStringList(m_profiles)},
            {"activeProfile", m_activeProfile},
            {"locked", m_locked},
            {"accessLevel", m_accessLevel},
            {"pingInterval", m_pingIntervalMs},
            {"battery", m_batteryPercent}};
}

bool DToolState::loadToolInfo(const QJsonObject& object, QString* error)
{
    const QJsonObject info = object.value("toolInfo").toObject();
    for (auto it = info.begin(); it != info.end(); ++it) {
        const int index = c_toolInfoKeys.indexOf(it.key());
        if (index < 0 || !(it.value().isString() || it.value().isDouble())) {
            *error = QStringLiteral("\"toolInfo\" takes text or numbers under the keys %1")
                         .arg(c_toolInfoKeys.join(QStringLiteral(", ")));
            return false;
        }
        m_toolInfo[index] = it.value().isString() ? it.value().toString() : QString::number(it.value().toDouble());
    }
    return true;
}

bool DToolState::loadProfiles(const QJsonObject& object, QString* error)
{
    if (!object.contains("profiles"))
        return true;
    QStringList profiles;
    QSet<QString> names;
    for (const QJsonValue& value : object.value("profiles").toArray()) {
        const QString profile = value.toString();
        const QString name = profileName(profile);
        if (name.isEmpty() || names.contains(name)) {
            *error = QStringLiteral("each of \"profiles\" is a text name,type,unit,torque[,angle[,release[,fastener]]]"
                                    " (a shorter line is a draft the host skips) with a name of its own, not \"%1\"")
                         .arg(profile);
            return false;
        }
        names.insert(name);
        profiles << profile;
    }
    m_profiles = profiles;
    m_activeProfile = profiles.isEmpty() ? QString() : profileName(profiles.first());
    return true;
}

bool DToolState::loadSettings(const QJsonObject& object, QString* error)
{
    if (object.contains("activeProfile") && !activateProfile(object.value("activeProfile").toString())) {
        *error = QStringLiteral("\"activeProfile\" names none of the profiles");
        return false;
    }
    if (object.contains("accessLevel")) {
        m_accessLevel = object.value("accessLevel").toString();
        if (!isAccessLevel(m_accessLevel)) {
            *error = QStringLiteral("\"accessLevel\" is one of L1, L2, L3, L4");
            return false;
        }
    }
    m_locked = object.value("locked").toBool(m_locked);
    return readInt(object, "pingInterval", 1, INT_MAX, &m_pingIntervalMs, error)
           && readInt(object, "battery", 0, 100, &m_batteryPercent, error);
}

bool DToolState::isAccessLevel(const QString& level)
{
    static const QStringList levels{"L1", "L2", "L3", "L4"};
    return levels.contains(level);
}

QString DToolState::toolInfoValue(const QString& key) const
{
    return m_toolInfo.value(c_toolInfoKeys.indexOf(key));
}

QStringList DToolState::activeProfileFields() const
{
    for (const QString& profile : m_profiles) {
        if (profileName(profile) == m_activeProfile)
            return profile.split(QLatin1Char(','));
    }
    return {};
}

bool DToolState::activateProfile(const QString& name)
{
    for (const QString& profile : m_profiles) {
        if (profileName(profile) == name) {
            m_activeProfile = name;
            return true;
        }
    }
    return false;
}

void DToolState::countCycle()
{
    m_toolInfo[c_cycleCountIndex] = QString::number(m_toolInfo.at(c_cycleCountIndex).toLongLong() + 1);
}
