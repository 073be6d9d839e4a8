#ifndef D_TOOL_STATE_H
#define D_TOOL_STATE_H

#include <QJsonObject>
#include <QString>
#include <QStringList>

// What the tool knows about itself: identification, job profiles (kept as the
// comma-separated lines it sends), the active profile and its settings.
class DToolState
{
public:
    DToolState();

    // Overrides the defaults with the keys present in a JSON object file.
    bool loadJson(const QString& path, QString* error);
    // Every key that loadJson takes, with the values of now.
    QJsonObject toJson() const;

    // The nine identification values, in the order the tool sends them.
    QStringList toolInfoValues() const { return m_toolInfo; }
    // One identification value by its key ("serial", "cycle_count", ...).
    QString toolInfoValue(const QString& key) const;
    const QStringList& profiles() const { return m_profiles; }
    // Fields of the active profile (name, type, unit, torque, ...).
    QStringList activeProfileFields() const;
    bool activateProfile(const QString& name);

    static bool isAccessLevel(const QString& level);

    bool isLocked() const { return m_locked; }
    void setLocked(bool locked) { m_locked = locked; }
    QString accessLevel() const { return m_accessLevel; }
    void setAccessLevel(const QString& level) { m_accessLevel = level; }
    int pingIntervalMs() const { return m_pingIntervalMs; }
    void setPingIntervalMs(int interval) { m_pingIntervalMs = interval; }
    int batteryPercent() const { return m_batteryPercent; }
    void countCycle();

private:
    bool loadToolInfo(const QJsonObject& object, QString* error);
    bool loadProfiles(const QJsonObject& object, QString* error);
    bool loadSettings(const QJsonObject& object, QString* error);

    QStringList m_toolInfo;
    QStringList m_profiles;
    QString m_activeProfile;
    bool m_locked = false;
    QString m_accessLevel;
    int m_pingIntervalMs = 150;
    int m_batteryPercent = 87;
};

#endif // D_TOOL_STATE_H
