#ifndef P_DEVICE_HYTORC_H
#define P_DEVICE_HYTORC_H

#include "d_abstract_plugin.h"

// The HYTORC cordless torque tool, as a device plug-in of the host.
class PDeviceHytorc : public DAbstractPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "fr.vexo.rd.box.PDeviceHytorc")
public:
    // Defaults: Qt's plug-in entry builds the root instance with no arguments.
    explicit PDeviceHytorc(const QUuid& objectUuid = QUuid(), QObject* parent = nullptr);
    ~PDeviceHytorc() override;

    void initPluginCommands() override;
    IPlugin* createInstance(const QUuid& objectUuid) const override;
    const char* pluginSubTypeName() const override;

    static QUuid getPluginId();
    static const char* getPluginName();
    static quint64 getPluginType();

private:
    void traceLifecycle() const;
};

#endif // P_DEVICE_HYTORC_H
