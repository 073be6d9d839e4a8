#ifndef D_TEST_WORKSTATION_H
#define D_TEST_WORKSTATION_H

#include "d_command_runner.h"
#include "d_instruction_router.h"
#include "d_plugin_host.h"

#include <QVariantMap>

// The whole host side as the workstation runs it: the real plug-in loader, the
// device plug-in, the serial driver plug-in playing "driver", the router and the runner.
class DTestWorkstation
{
public:
    struct Outcome {
        bool finished = false;
        bool ok = false;
        QVariantMap results;
    };

    // False with a reason when the plug-ins cannot be loaded and instantiated.
    bool setUp(QString* error);
    // Sends an instruction to "driver" and waits for its first reply (empty when refused or silent).
    QVariantMap call(const QString& instruction, const QVariantMap& parameters, QString* refusal = nullptr);
    // Sends "changeDevicePath" for `path`, with the device plug-in's settings, and waits for the answer.
    bool openDevice(const QString& path);
    // Starts one command without waiting; `last` holds its outcome once it ends.
    bool start(const QString& name, const QVariantMap& arguments, QString* error);
    // Runs one command to its end, or gives up after `waitMs` (finished stays false).
    Outcome run(const QString& name, const QVariantMap& arguments, int waitMs);

    DInstructionRouter router;
    DPluginHost host{&router};
    DCommandRunner runner;
    DAbstractPlugin* device = nullptr;
    DAbstractPlugin* driver = nullptr;
    Outcome last;
    QVariantList published;  // every report ("eventData") a listener published, in order

private:
    quint64 m_runId = 0;
};

#endif // D_TEST_WORKSTATION_H
