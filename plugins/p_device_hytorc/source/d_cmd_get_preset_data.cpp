#include "d_cmd_get_preset_data.h"

#include "hytorc_torque.h"
#include "p_device_hytorc.h"

#include <QtDebug>

namespace {
const QString c_progId = QStringLiteral("progId");

QString hostUnit(const QVariant& toolUnit)
{
    const QString unit = toolUnit.toString().toUpper();
    if (unit == QLatin1String("NM"))
        return QStringLiteral("N.m");
    if (unit == QLatin1String("FTLB"))
        return QStringLiteral("ft.lb");
    return unit;
}

} // namespace

DCmdGetPresetData::DCmdGetPresetData(const QVariantMap& arguments, QObject* parent)
    : DAbstractCommand(QStringLiteral("getPresetData"), arguments, parent)
{
    setDescription(QStringLiteral("Get the configuration of a preset from the stored HYTORC program list"));
    declareAParameter(c_progId, QStringLiteral("uint"), QStringLiteral("The id of the program"), QVariant());
    declareAResult(QStringLiteral("cmd_success"), QStringLiteral("bool"), QStringLiteral("Success of the command"),
                   false);
    declareAResult(QStringLiteral("presetData"), QStringLiteral("varM"), QStringLiteral("the presets data"),
                   QVariant());
}

DAbstractCommand* DCmdGetPresetData::createPrototype(QObject* plugin)
{
    return new DCmdGetPresetData(QVariantMap(), plugin);
}

// The torque goes through a decimal conversion here (12.345 gives 1234), unlike setProgram's.
QVariantMap DCmdGetPresetData::buildPresetData(const QVariantMap& record)
{
    QVariantMap preset{{QStringLiteral("name"), record.value(QStringLiteral("name"))},
                       {QStringLiteral("type"), record.value(QStringLiteral("type"))},
                       {QStringLiteral("unit"), hostUnit(record.value(QStringLiteral("unit")))},
                       {QStringLiteral("torque"), torqueHundredths(record.value(QStringLiteral("torque")).toDouble())},
                       {c_progId, record.value(c_progId)}};
    if (record.contains(QStringLiteral("angle")))
        preset.insert(QStringLiteral("targetAngle"), record.value(QStringLiteral("angle")).toInt());
    for (const QString& key : {QStringLiteral("release"), QStringLiteral("fastener")}) {
        if (record.contains(key))
            preset.insert(key, record.value(key));
    }
    return preset;
}

// Looked up by the stored id, not by position, so a reordered list still answers right.
bool DCmdGetPresetData::commandExecute()
{
    if (!DAbstractCommand::commandExecute())
        return false;
    auto* plugin = qobject_cast<PDeviceHytorc*>(parent());
    if (!plugin)
        return false;
    const QVariant requested = getParameterValue(c_progId, QVariant());
    bool isNumber = false;
    const int progId = requested.toInt(&isNumber);
    if (!isNumber || progId < 1) {
        qWarning() << "[HYTORC-GET_PRESET] Invalid progId:" << requested;
        return finishWith(false, QVariantMap());
    }
    const QVariant programList = plugin->getProperty(QStringLiteral("programList"), static_cast<bool*>(nullptr));
    if (!programList.canConvert<QVariantList>()) {
        qWarning() << "[HYTORC-GET_PRESET] Invalid program list property type";
        return finishWith(false, QVariantMap());
    }
    for (const QVariant& entry : programList.toList()) {
        const QVariantMap record = entry.toMap();
        if (record.value(c_progId).toInt() == progId)
            return finishWith(true, buildPresetData(record));
    }
    return finishWith(false, QVariantMap());
}

QSharedPointer<ICommand> DCmdGetPresetData::newCommandInstance(const QVariantMap& arguments)
{
    return shareCommand(new DCmdGetPresetData(arguments, parent()));
}

bool DCmdGetPresetData::finishWith(bool success, const QVariantMap& preset)
{
    commandUpdateResults({{QStringLiteral("cmd_success"), success}, {QStringLiteral("presetData"), preset}});
    bool ok = true;
    finishTheCommand(ok);
    return ok;
}
