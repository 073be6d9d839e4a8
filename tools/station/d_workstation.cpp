#include "d_workstation.h"

#include "d_abstract_plugin.h"
#include "d_command_runner.h"
#include "d_instruction_router.h"
#include "d_plugin_host.h"

#include <QUuid>
#include <QtDebug>

namespace {

const QString c_devicePluginName = QStringLiteral("Plugin Device Hytorc");
const QString c_driverPluginName = QStringLiteral("Plugin Driver Serial");
const QString c_driverTarget = QStringLiteral("driver");

} // namespace

DWorkstation::DWorkstation(QObject* parent)
    : QObject(parent)
    , m_router(new DInstructionRouter(this))
    , m_host(new DPluginHost(m_router, this))
    , m_runner(new DCommandRunner(this))
{
}

DWorkstation::~DWorkstation()
{
    delete m_runner;
}

bool DWorkstation::setUp(const QString& pluginDirectory, QString* error)
{
    // Only the two plug-ins we need must load; anything else in the folder is skipped.
    QString skipped;
    m_host->loadPlugins(pluginDirectory, &skipped);
    IPlugin* deviceRoot = m_host->rootPlugin(c_devicePluginName);
    IPlugin* driverRoot = m_host->rootPlugin(c_driverPluginName);
    if (!deviceRoot || !driverRoot) {
        *error = QStringLiteral("\"%1\" not found in %2").arg(deviceRoot ? c_driverPluginName : c_devicePluginName,
                                                              pluginDirectory);
        if (!skipped.isEmpty())
            *error += QStringLiteral(" (%1)").arg(skipped);
        return false;
    }
    if (!skipped.isEmpty())
        qWarning().noquote() << QStringLiteral("skipped in the plug-in folder: %1").arg(skipped);
    m_device = m_host->createInstance(deviceRoot, QUuid::createUuid());
    m_driver = m_host->createInstance(driverRoot, QUuid::createUuid());
    if (!m_device || !m_driver || !m_host->playTarget(c_driverTarget, m_driver)) {
        *error = QStringLiteral("the plug-ins could not be instantiated");
        return false;
    }
    return true;
}

bool DWorkstation::commandSucceeded(bool finishedOk, const QVariantMap& results)
{
    if (results.contains(QStringLiteral("cmd_success")))
        return results.value(QStringLiteral("cmd_success")).toBool();
    if (results.contains(QStringLiteral("doneOk")))
        return results.value(QStringLiteral("doneOk")).toBool();
    return finishedOk;
}
