#ifndef D_TEST_WORKSTATION_H
#define D_TEST_WORKSTATION_H

#include "d_abstract_plugin.h"
#include "d_command_runner.h"
#include "d_instruction_router.h"
#include "d_plugin_host.h"

#include <QTest>
#include <QTimer>
#include <QUuid>
#include <QVariantMap>

#include <memory>

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

    // False with a reason when the plug-ins cannot be loaded and instantiated, or when
    // `devicePath` is given and cannot be opened.
    bool setUp(QString* error, const QString& devicePath = QString())
    {
        QObject::connect(&runner, &DCommandRunner::sigFinished, &runner,
                         [this](quint64 id, const QString&, bool ok, const QVariantMap& results) {
                             if (id == m_runId)
                                 last = {true, ok, results};
                         });
        QObject::connect(&runner, &DCommandRunner::sigResultsUpdated, &runner,
                         [this](quint64, const QString&, const QVariantMap& changed) {
                             if (changed.contains("eventData"))
                                 published << changed.value("eventData");
                         });
        if (!host.loadPlugins(qEnvironmentVariable("HYTORC_BUILD_DIR") + QStringLiteral("/plugins"), error))
            return false;
        IPlugin* deviceRoot = host.rootPlugin(QStringLiteral("Plugin Device Hytorc"));
        IPlugin* driverRoot = host.rootPlugin(QStringLiteral("Plugin Driver Serial"));
        *error = QStringLiteral("a plug-in is missing");
        if (!deviceRoot || !driverRoot)
            return false;
        device = host.createInstance(deviceRoot, QUuid::createUuid());
        driver = host.createInstance(driverRoot, QUuid::createUuid());
        if (!device || !driver || !host.playTarget(QStringLiteral("driver"), driver))
            return false;
        *error = QStringLiteral("cannot open ") + devicePath;
        return devicePath.isEmpty() || openDevice(devicePath);
    }
    // Handles each event as it comes: QTest::qWaitFor sleeps 10 ms between looks, which
    // would hold every step of a transaction and falsify the benchmarks' latencies.
    template<typename Predicate>
    static bool waitFor(Predicate done, int ms)
    {
        QTimer deadline;  // also an event to wake up to, at the latest
        deadline.setSingleShot(true);
        deadline.start(ms);
        while (!done() && deadline.isActive())
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        return done();
    }
    // Sends an instruction to "driver" and waits for its first reply (empty when refused or silent).
    QVariantMap call(const QString& instruction, const QVariantMap& parameters, QString* refusal = nullptr)
    {
        // Shared with the reply handler, which may outlive a wait that gave up.
        const auto replies = std::make_shared<QList<QVariantMap>>();
        QString reason;
        const quint64 id = router.openInstruction(QStringLiteral("driver"), instruction, parameters, 10000,
                                                  [replies](quint64, const QVariantMap& reply) { *replies << reply; },
                                                  refusal ? refusal : &reason);
        const bool replied = id != 0 && waitFor([&] { return !replies->isEmpty(); }, 15000);
        return replied ? replies->first() : QVariantMap();
    }
    // Sends "changeDevicePath" for `path`, with the device plug-in's settings, and waits for the answer.
    bool openDevice(const QString& path)
    {
        const QVariantMap settings{{"devicePath", path}, {"rawMode", true},  {"parallelListening", true},
                                   {"baud_rate", 115200}, {"data_bits", 8},   {"parity", 0},
                                   {"stop_bits", 1},      {"flow_control", 0}};
        return call(QStringLiteral("changeDevicePath"), settings).value("results").toMap().value("doneOk").toBool();
    }
    // Starts one command without waiting; `last` holds its outcome once it ends.
    bool start(const QString& name, const QVariantMap& arguments, QString* error)
    {
        last = Outcome();
        m_runId = runner.start(device, name, arguments, error);
        return m_runId != 0;
    }
    // Runs one command to its end, or gives up after `waitMs` (finished stays false).
    Outcome run(const QString& name, const QVariantMap& arguments, int waitMs)
    {
        QString error;
        if (start(name, arguments, &error))
            (void)waitFor([this] { return last.finished; }, waitMs);
        return last;
    }

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
