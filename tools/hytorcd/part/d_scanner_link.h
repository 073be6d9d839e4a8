#ifndef D_SCANNER_LINK_H
#define D_SCANNER_LINK_H

#include <QList>
#include <QObject>
#include <QRegularExpression>
#include <QSerialPort>
#include <QTimer>

#include "d_station_config.h"

class DStationPart;

// A barcode scanner in serial mode (a serial port or a pseudo-terminal): one code per line,
// ended by CR or LF. A code becomes identifier part 1 unless it matches scanner_part2..4.
// Unplugged, it is tried again every 2 s; each change is one line on stderr.
class DScannerLink : public QObject
{
    Q_OBJECT
public:
    static constexpr int c_maxLineBytes = 256;

    // scanner, scanner_part2, scanner_part3, scanner_part4.
    static QList<DStationConfig::DKey> configKeys();

    DScannerLink(DStationPart* part, QObject* parent = nullptr);

    // Reads the config's keys (checked by their validators).
    void configure(const DStationConfig& config);
    void start();

private:
    void open();
    void onReadable();
    void onError(QSerialPort::SerialPortError error);
    void takeLine(const QByteArray& line);
    void lose(const QString& reason);

    DStationPart* m_part;
    QString m_path;
    QList<QRegularExpression> m_patterns;  // parts 2, 3, 4; an empty pattern routes nothing
    QSerialPort m_port;
    QTimer m_retry;
    QByteArray m_pending;
    bool m_overlong = false;  // dropping the rest of a line past c_maxLineBytes
    bool m_absentSaid = false;
};

#endif // D_SCANNER_LINK_H
