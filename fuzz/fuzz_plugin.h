// What the targets over the plug-in's commands share: one plug-in for the whole run,
// its instructions accepted and going nowhere (the parsers are fed directly).
#ifndef FUZZ_PLUGIN_H
#define FUZZ_PLUGIN_H

#include "i_instruction_router.h"
#include "p_device_hytorc.h"

inline PDeviceHytorc* fuzzPlugin()
{
    struct Router : IInstructionRouter {
        quint64 openInstruction(const QString&, const QString&, const QVariantMap&, int, ReplyHandler,
                                QString*) override { return 1; }
        bool closeInstruction(quint64) override { return true; }
    };
    static Router router;
    static PDeviceHytorc plugin;
    plugin.setInstructionRouter(&router);
    return &plugin;
}

#endif // FUZZ_PLUGIN_H
