#include "d_serial_settings.h"

#include <algorithm>
#include <initializer_list>

namespace {

// The value of `key` (or `fallback` when absent) when it is one of `allowed`.
bool readChoice(const QVariantMap& parameters, const QString& key, int fallback, std::initializer_list<int> allowed,
                int* value, QString* refusal)
{
    const QVariant given = parameters.value(key, fallback);
    bool ok = false;
    *value = given.toInt(&ok);
    if (ok && std::find(allowed.begin(), allowed.end(), *value) != allowed.end())
        return true;
    *refusal = QStringLiteral("unusable \"%1\": %2").arg(key, given.toString());
    return false;
}

} // namespace

bool DSerialSettings::fromParameters(const QVariantMap& parameters, DSerialSettings* settings, QString* refusal)
{
    settings->m_devicePath = parameters.value(QStringLiteral("devicePath")).toString();
    if (settings->m_devicePath.isEmpty()) {
        *refusal = QStringLiteral("\"changeDevicePath\" needs a \"devicePath\"");
        return false;
    }
    const QVariant baudRate = parameters.value(QStringLiteral("baud_rate"), settings->m_baudRate);
    bool ok = false;
    settings->m_baudRate = baudRate.toInt(&ok);
    if (!ok || settings->m_baudRate <= 0) {
        *refusal = QStringLiteral("unusable \"baud_rate\": %1").arg(baudRate.toString());
        return false;
    }
    // "rawMode" and "parallelListening" ask for nothing more: QSerialPort always sets the
    // line raw, and every listener hears every chunk.
    int dataBits = 0;
    int parity = 0;
    int stopBits = 0;
    int flowControl = 0;
    if (!readChoice(parameters, QStringLiteral("data_bits"), settings->m_dataBits, {5, 6, 7, 8}, &dataBits, refusal)
        || !readChoice(parameters, QStringLiteral("parity"), settings->m_parity, {0, 2, 3, 4, 5}, &parity, refusal)
        || !readChoice(parameters, QStringLiteral("stop_bits"), settings->m_stopBits, {1, 2}, &stopBits, refusal)
        || !readChoice(parameters, QStringLiteral("flow_control"), settings->m_flowControl, {0, 1, 2}, &flowControl,
                       refusal))
        return false;
    settings->m_dataBits = QSerialPort::DataBits(dataBits);
    settings->m_parity = QSerialPort::Parity(parity);
    settings->m_stopBits = QSerialPort::StopBits(stopBits);
    settings->m_flowControl = QSerialPort::FlowControl(flowControl);
    return true;
}

void DSerialSettings::applyTo(QSerialPort* port) const
{
    port->setPortName(m_devicePath);
    port->setBaudRate(m_baudRate);
    port->setDataBits(m_dataBits);
    port->setParity(m_parity);
    port->setStopBits(m_stopBits);
    port->setFlowControl(m_flowControl);
}

QString DSerialSettings::devicePath() const { return m_devicePath; }
