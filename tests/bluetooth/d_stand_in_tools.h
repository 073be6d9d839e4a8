#ifndef D_STAND_IN_TOOLS_H
#define D_STAND_IN_TOOLS_H

#include <QStringList>
#include <QTemporaryDir>

// bluetoothctl and rfcomm played by stand-in.sh from a folder of the test's own, put
// first on PATH (the real stdbuf and timeout stay). Each run is noted in "calls".
class DStandInTools
{
public:
    struct DCall {
        qint64 ms = 0;
        qint64 pid = 0;
        QString line;  // what started it, then its command line: "timeout bluetoothctl trust 00:..."
    };

    DStandInTools();
    ~DStandInTools();

    QString dir() const { return m_dir.path(); }
    QByteArray pathVariable() const;
    // What `tool` does for `verb` ("bluetoothctl", "trust"), for one address or (empty) all.
    void play(const QString& tool, const QString& verb, const QByteArray& script, const QString& mac = QString());
    // Success words for power, trust and connect; bind links /dev/rfcomm0 to `target`.
    void playNormalRoad(const QString& target);
    // Takes `tool` away; PATH then holds only this folder, so that the system's own is not found.
    void remove(const QString& tool);
    QList<DCall> calls(const QString& containing = QString()) const;
    // Serialises the use of /dev/rfcomm0 across the machine; false when it is a real device.
    bool lockRfcomm();

private:
    QTemporaryDir m_dir;
    int m_lock = -1;
    bool m_alone = false;
};

#endif // D_STAND_IN_TOOLS_H
