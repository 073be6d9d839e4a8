#ifndef D_TEST_PLUGIN_H
#define D_TEST_PLUGIN_H

#include "d_abstract_plugin.h"

// Declares one DTestCommand of each behaviour: "finishAtOnce", "refuse",
// "follow" (stopped by "stopFollow") and "listenDriver".
class DTestPlugin : public DAbstractPlugin
{
    Q_OBJECT
public:
    DTestPlugin();

    void initPluginCommands() override;
    IPlugin* createInstance(const QUuid& objectUuid) const override;
    const char* pluginSubTypeName() const override;
};

#endif // D_TEST_PLUGIN_H
