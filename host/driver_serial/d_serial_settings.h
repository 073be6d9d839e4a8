#ifndef D_SERIAL_SETTINGS_H
#define D_SERIAL_SETTINGS_H

#include <QSerialPort>
#include <QString>
#include <QVariantMap>

// Where and how to open the serial line, read from the parameters of "changeDevicePath".
class DSerialSettings
{
public:
    // False with *refusal when "devicePath" is missing or a setting is out of range.
    // Absent settings keep the tool's usual 115200 8N1 without flow control.
    static bool fromParameters(const QVariantMap& parameters, DSerialSettings* settings, QString* refusal);

    void applyTo(QSerialPort* port) const;
    QString devicePath() const;

private:
    QString m_devicePath;
    qint32 m_baudRate = QSerialPort::Baud115200;
    QSerialPort::DataBits m_dataBits = QSerialPort::Data8;
    QSerialPort::Parity m_parity = QSerialPort::NoParity;
    QSerialPort::StopBits m_stopBits = QSerialPort::OneStop;
    QSerialPort::FlowControl m_flowControl = QSerialPort::NoFlowControl;
};

#endif // D_SERIAL_SETTINGS_H
