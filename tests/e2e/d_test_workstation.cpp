#include "d_test_workstation.h"

#include "d_abstract_plugin.h"

#include <QEventLoop>
#include <QTimer>
#include <QUuid>

namespace {

// Runs the event loop until `done` is called or `waitMs` passes; true when done.
bool waitFor(int waitMs, const std::function<void(std::function<void()>)>& start)
{
    QEventLoop loop;
    bool done = false;
    QTimer::singleShot(waitMs, &loop, &QEventLoop::quit);
    start([&] {
        done = true;
        loop.quit();
    });
    if (!done)
        loop.exec();
    return done;
}

} // namespace

bool DTestWorkstation::setUp(QString* error)
{
    if (!host.loadPlugins(qEnvironmentVariable("HYTORC_BUILD_DIR") + QStringLiteral("/plugins"), error))
        return false;
    IPlugin* deviceRoot = host.rootPlugin(QStringLiteral("Plugin Device Hytorc"));
    IPlugin* driverRoot = host.rootPlugin(QStringLiteral("Plugin Driver Serial"));
    if (!deviceRoot || !driverRoot) {
        *error = QStringLiteral("a plug-in is missing");
        return false;
    }
    device = host.createInstance(deviceRoot, QUuid::createUuid());
    driver = host.createInstance(driverRoot, QUuid::createUuid());
    return device && driver && host.playTarget(QStringLiteral("driver"), driver);
}

bool DTestWorkstation::openDevice(const QString& path)
{
    const QVariantMap settings{{"devicePath", path}, {"rawMode", true},  {"parallelListening", true},
                               {"baud_rate", 115200}, {"data_bits", 8},   {"parity", 0},
                               {"stop_bits", 1},      {"flow_control", 0}};
    bool opened = false;
    waitFor(10000, [&](const std::function<void()>& done) {
        QString refusal;
        router.openInstruction(QStringLiteral("driver"), QStringLiteral("changeDevicePath"), settings, 5000,
                               [&opened, done](quint64, const QVariantMap& reply) {
                                   opened = reply.value("results").toMap().value("doneOk").toBool();
                                   done();
                               },
                               &refusal);
    });
    return opened;
}

DTestWorkstation::Outcome DTestWorkstation::run(const QString& name, const QVariantMap& arguments, int waitMs)
{
    Outcome outcome;
    quint64 runId = 0;
    outcome.finished = waitFor(waitMs, [&](const std::function<void()>& done) {
        QObject::connect(&runner, &DCommandRunner::sigFinished, &runner,
                         [&, done](quint64 id, const QString&, bool ok, const QVariantMap& results) {
                             if (id != runId)
                                 return;
                             outcome.ok = ok;
                             outcome.results = results;
                             done();
                         });
        QString error;
        runId = runner.start(device, name, arguments, &error);
    });
    QObject::disconnect(&runner, &DCommandRunner::sigFinished, &runner, nullptr);
    return outcome;
}
