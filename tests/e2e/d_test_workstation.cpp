#include "d_test_workstation.h"

#include "d_abstract_plugin.h"

#include <QTest>
#include <QUuid>

#include <memory>

bool DTestWorkstation::setUp(QString* error)
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
    if (!deviceRoot || !driverRoot) {
        *error = QStringLiteral("a plug-in is missing");
        return false;
    }
    device = host.createInstance(deviceRoot, QUuid::createUuid());
    driver = host.createInstance(driverRoot, QUuid::createUuid());
    return device && driver && host.playTarget(QStringLiteral("driver"), driver);
}

QVariantMap DTestWorkstation::call(const QString& instruction, const QVariantMap& parameters, QString* refusal)
{
    // Shared with the reply handler, which may outlive a wait that gave up.
    const auto replies = std::make_shared<QList<QVariantMap>>();
    QString reason;
    const quint64 id = router.openInstruction(QStringLiteral("driver"), instruction, parameters, 10000,
                                              [replies](quint64, const QVariantMap& reply) { *replies << reply; },
                                              refusal ? refusal : &reason);
    const bool replied = id != 0 && QTest::qWaitFor([&] { return !replies->isEmpty(); }, 15000);
    return replied ? replies->first() : QVariantMap();
}

bool DTestWorkstation::openDevice(const QString& path)
{
    const QVariantMap settings{{"devicePath", path}, {"rawMode", true},  {"parallelListening", true},
                               {"baud_rate", 115200}, {"data_bits", 8},   {"parity", 0},
                               {"stop_bits", 1},      {"flow_control", 0}};
    return call(QStringLiteral("changeDevicePath"), settings).value("results").toMap().value("doneOk").toBool();
}

bool DTestWorkstation::start(const QString& name, const QVariantMap& arguments, QString* error)
{
    last = Outcome();
    m_runId = runner.start(device, name, arguments, error);
    return m_runId != 0;
}

DTestWorkstation::Outcome DTestWorkstation::run(const QString& name, const QVariantMap& arguments, int waitMs)
{
    QString error;
    if (start(name, arguments, &error))
        QTest::qWaitFor([this] { return last.finished; }, waitMs);
    return last;
}
