// The device plug-in as the host meets it, a library that Qt's own loader reads and loads:
// its metadata, identity and command set; then the tool commands with a recording host:
// the bytes each one asks the driver to write, its results, the plug-in properties it leaves,
// its log lines, and that a command the host keeps after its end stays ended. The
// end-to-end tests hold the roads through the simulator (report shapes, the keep-alive).
#include "d_abstract_command.h"
#include "d_abstract_plugin.h"
#include "d_recording_router.h"
#include "hytorc_hcp_frame.h"

#include <QJsonObject>
#include <QPluginLoader>
#include <QtTest>

namespace {

// What the tool sends, and the request frame the host must write.
QByteArray ack() { return HytorcHcpFrame::buildAckFrame(); }
QByteArray replyFrame(const QByteArray& payload, bool last)
{
    return HytorcHcpFrame::encodeFrame(0, HytorcHcpFrame::c_dataFlag | (last ? HytorcHcpFrame::c_lastFlag : 0),
                                       payload);
}
QByteArray requestFrame(const QByteArray& text, int sequence)
{
    return HytorcHcpFrame::buildFrame(text, true, false, true, sequence);
}

QStringList g_warnings;

void keepWarnings(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    if (type == QtWarningMsg)
        g_warnings << message;
}

const QHash<QString, QString> c_validators{{"setLock", "lock"}, {"setLevelAccess", "level"}, {"setProgram", "prog"}};
const QVariantMap c_accepted{{"cmd_success", true}, {"doneOk", true}};
const QVariantMap c_refused{{"cmd_success", false}, {"doneOk", false}};
const QByteArray c_ok = "RESPONSE\r\nECHO\r\nERRORCODE,0\r\nPASSED\r\n";

QVariantMap program(const QString& name, const QString& torque, int progId, const QVariantMap& more = {})
{
    QVariantMap record{{"name", name}, {"type", "TQ"}, {"unit", "FTLB"}, {"torque", torque}, {"progId", progId}};
    for (auto it = more.cbegin(); it != more.cend(); ++it)
        record.insert(it.key(), it.value());
    return record;
}

const QVariantList c_stored{program("P1", "120", 1), program("P2", "35.5", 2, {{"angle", "30"}, {"fastener", "LH"}}),
                            program("P3", "35", 3)};

const QString c_iid = QStringLiteral("fr.vexo.rd.box.PDeviceHytorc");
const QUuid c_pluginUuid(QStringLiteral("{4b2d6999-ab8e-4a72-bfb0-c962b68e7bda}"));
// Qt's loader expects the debug flag of a build without QT_NO_DEBUG.
#ifdef QT_NO_DEBUG
constexpr bool c_debugBuild = false;
#else
constexpr bool c_debugBuild = true;
#endif

} // namespace

class TestDevicePlugin : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_loader.setFileName(qEnvironmentVariable("HYTORC_BUILD_DIR") + "/plugins/libp_device_hytorc.so");
        QVERIFY2(m_loader.load(), qPrintable(m_loader.errorString()));
    }

    void init()
    {
        m_instance.reset(qobject_cast<IPlugin*>(m_loader.instance())->createInstance(QUuid::createUuid()));
        m_plugin = dynamic_cast<DAbstractPlugin*>(m_instance.data());
        m_router = new DRecordingRouter;
        m_plugin->setInstructionRouter(m_router);
        m_plugin->initPluginCommands();
        g_warnings.clear();
        qInstallMessageHandler(keepWarnings);
    }

    void cleanup()
    {
        qInstallMessageHandler(nullptr);
        m_command.reset();
        m_instance.reset();
        delete m_router;
    }

    // What Qt's loader reads without loading the library.
    void metadata()
    {
        const QJsonObject meta = m_loader.metaData();
        QCOMPARE(meta.value(QStringLiteral("IID")).toString(), c_iid);
        QCOMPARE(meta.value(QStringLiteral("className")).toString(), QStringLiteral("PDeviceHytorc"));
        QCOMPARE(meta.value(QStringLiteral("debug")).toBool(), c_debugBuild);
        QVERIFY(meta.value(QStringLiteral("MetaData")).toObject().isEmpty());
    }

    void identityAndInstances()
    {
        // The root instance, Qt's entry's object: no uuid, no parent.
        QVERIFY(root()->objectUuid().isNull() && m_loader.instance()->parent() == nullptr);
        QCOMPARE(root()->pluginVersion(), quint64(1) << 48);
        const QUuid uuid = QUuid::createUuid();
        QScopedPointer<IPlugin> a(root()->createInstance(uuid));
        QScopedPointer<IPlugin> nullUuid(root()->createInstance(QUuid()));
        QVERIFY(a.data() != root() && a.data() != nullUuid.data());
        QCOMPARE(a->objectUuid(), uuid);
        QVERIFY(nullUuid->objectUuid().isNull());
        for (IPlugin* instance : {root(), a.data(), nullUuid.data()}) {
            QCOMPARE(instance->pluginUuid(), c_pluginUuid);
            QCOMPARE(instance->pluginName(), QStringLiteral("Plugin Device Hytorc"));
            QCOMPARE(quint64(instance->pluginType()), quint64(1147500137));
            QCOMPARE(QByteArray(instance->pluginSubTypeName()), QByteArray());
            bool ok = false;
            const QVariant typeName = instance->getProperty(QStringLiteral("typeName"), &ok);
            QVERIFY(ok && typeName.userType() == QMetaType::QString && typeName.toString().isEmpty());
        }
        // Nothing of one instance leaks into another.
        dynamic_cast<DAbstractPlugin*>(a.data())->setProperty(QStringLiteral("lock"), true, false);
        bool found = true;
        nullUuid->getProperty(QStringLiteral("lock"), &found);
        QVERIFY(!found);
    }

    // Against the instance init() declared the commands of. (Their descriptions are read on the
    // command line's list, in test_field_faults.)
    void commandDeclaration()
    {
        QScopedPointer<IPlugin> first(root()->createInstance(QUuid::createUuid()));
        auto* plugin = dynamic_cast<DAbstractPlugin*>(first.data());
        QSignalSpy done(plugin, &DAbstractPlugin::sigCommandsInitDone);
        plugin->initPluginCommands();
        plugin->initPluginCommands(); // a second round replaces the set rather than doubling it
        QCOMPARE(done.count(), 2);
        QCOMPARE(done.at(0).at(0).toUuid(), plugin->objectUuid());
        QCOMPARE(done.at(0).at(1).toStringList(), plugin->commandNames());
        QCOMPARE(plugin->commandNames(), m_plugin->commandNames());
        QCOMPARE(plugin->commandNames(),
                 (QStringList{"searchAndConnect", "listenEventsData", "getPresetData", "startDetection",
                              "setPingInterval", "listProgram", "setProgram", "setLock", "setLevelAccess",
                              "setKeepAliveFonction", "checkSerialId", "getToolInfo"}));
        for (const QString& name : plugin->commandNames()) {
            QCOMPARE(plugin->declaredCommand(name)->parent(), plugin);
            QCOMPARE(m_plugin->declaredCommand(name)->parent(), m_plugin);
        }
    }

    // The cases the end-to-end sequence does not reach, and the map each tool information reply
    // makes. An empty request: refused before anything reaches the driver.
    void transactions_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QVariantMap>("arguments");
        QTest::addColumn<QByteArray>("request");
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<QVariantMap>("results");
        QTest::addColumn<QVariantMap>("properties");
        QTest::addColumn<QStringList>("warnings");
        const auto row = [](const char* row, const QString& name, const QVariantMap& arguments, const QByteArray& request,
                            const QByteArray& reply, const QVariantMap& results, const QVariantMap& properties = {},
                            const QStringList& warnings = {}) {
            QTest::newRow(row) << name << arguments << request << reply << results << properties << warnings;
        };
        const QByteArray info = "GET ADMIN TOOL_INFO\r\n";
        row("tool info, nine lines and one more", "getToolInfo", {}, info,
            "RESPONSE\r\n" + info + "LION-2\r\nHYT24A0137\r\n2.4.1\r\n1.9.0\r\n1.2.3\r\n4.04\r\n1873\r\n2025-09-14\r\n"
                                    "PCB-C3\r\nextra\r\nERRORCODE,0\r\nPASSED\r\n",
            {{"cmd_success", true},
             {"deviceInformation", QVariantMap{{"model", "LION-2"}, {"serial", "HYT24A0137"}, {"uic_fw", "2.4.1"},
                                               {"mdc_fw", "1.9.0"}, {"bsm_fw", "1.2.3"}, {"ublox_fw", "4.04"},
                                               {"cycle_count", "1873"}, {"cal_date", "2025-09-14"},
                                               {"pcb_version", "PCB-C3"}}}});
        row("tool info, three lines", "getToolInfo", {}, info, "HCD\r\nM\r\nS\r\nF\r\nPASSED\r\n",
            {{"cmd_success", true}, {"deviceInformation", QVariantMap{{"model", "M"}, {"serial", "S"}, {"uic_fw", "F"}}}});
        row("tool info, empty", "getToolInfo", {}, info, "RESPONSE\r\nERRORCODE,0\r\nPASSED\r\n",
            {{"cmd_success", true}, {"deviceInformation", QVariantMap()}});
        row("tool info, tool error", "getToolInfo", {}, info, "RESPONSE\r\nERRORCODE,4\r\n",
            {{"cmd_success", false}, {"deviceInformation", QVariant()}});
        row("lock refused", "setLock", {{"lock", true}}, "SET FLAGS OPEN_PROTOCOL\r\nOPEN_PROTOCOL_LOCK\r\n",
            "RESPONSE\r\nERRORCODE,2\r\n", c_refused, {{"lock", QVariant()}});
        row("level missing", "setLevelAccess", {}, "SET ADMIN ACCESS_LEVEL\r\nL4\r\n", c_ok, c_accepted);
        row("ping negative", "setPingInterval", {{"interval", -3}}, "SET PING INTERVAL\r\n150\r\n", c_ok, c_accepted);
        const QVariantList listed{
            QVariantMap{{"name", "P1"}, {"type", "TQ"}, {"unit", "FTLB"}, {"torque", "120"}, {"progId", 1}},
            QVariantMap{{"name", "P2"}, {"type", "TQA"}, {"unit", "NM"}, {"torque", "250.5"}, {"angle", "30"},
                        {"release", "1"}, {"fastener", "RH"}, {"progId", 2}},
            QVariantMap{{"name", "P3"}, {"type", ""}, {"unit", "NM"}, {"torque", "800"}, {"progId", 3}}};
        row("list", "listProgram", {}, "GET JOBS PROFILE\r\n",
            "HCD\r\nGET JOBS PROFILE\r\nP1,TQ,FTLB,120\r\nP0,TQ,NM\r\n P2 , TQA , NM , 250.5 , 30 , 1 , RH , extra \r\n"
            "P3,,NM,800\r\nERRORCODE,0\r\nPASSED\r\n",
            {{"cmd_success", true}, {"programList", listed}},
            {{"programList", listed}, {"programListCount", 3}, {"currentProgId", 1}});
        row("list empty", "listProgram", {}, "GET JOBS PROFILE\r\n", c_ok,
            {{"cmd_success", true}, {"programList", QVariantList()}}, {{"programListCount", 0}, {"currentProgId", 7}});
        const auto preset = [](const char* angle, int torque) {
            return QVariantMap{{"targetAngle", angle}, {"torque", torque}};
        };
        row("program short record", "setProgram", {{"progId", 1}}, "SET JOBS PROFILE\r\nP1,TQ,FTLB,120,0,0,RH\r\n", c_ok,
            {{"cmd_success", true}, {"presetData", preset("0", 12000)}}, {{"currentProgId", 1}});
        row("program decimal torque", "setProgram", {{"progId", 2}}, "SET JOBS PROFILE\r\nP2,TQ,FTLB,35.5,30,0,LH\r\n",
            c_ok, {{"cmd_success", true}, {"presetData", preset("30", 0)}}, {{"currentProgId", 2}});
        row("program refused", "setProgram", {{"progId", 3}}, "SET JOBS PROFILE\r\nP3,TQ,FTLB,35,0,0,RH\r\n",
            "RESPONSE\r\nERRORCODE,3\r\n", {{"cmd_success", false}, {"presetData", preset("0", 3500)}},
            {{"currentProgId", 7}}, {"[HYTORC-SET_PROG] Failed after retries: \"Tool returned error: ERRORCODE,3\""});
        for (const QVariant& id : {QVariant(0), QVariant("abc")}) {
            row(qPrintable("program id " + id.toString()), "setProgram", {{"progId", id}}, {}, {},
                {{"cmd_success", false}, {"presetData", QVariant()}}, {{"currentProgId", 7}});
        }
    }

    // Every row starts with three stored programs and "currentProgId" 7.
    void transactions()
    {
        QFETCH(QString, name);
        QFETCH(QVariantMap, arguments);
        QFETCH(QByteArray, request);
        QFETCH(QByteArray, reply);
        QFETCH(QVariantMap, results);
        QFETCH(QVariantMap, properties);
        QFETCH(QStringList, warnings);
        m_plugin->setProperty("programList", c_stored, false);
        m_plugin->setProperty("currentProgId", 7, false);
        DAbstractCommand* command = make(name, arguments);
        QSignalSpy finished(command, &DAbstractCommand::sigCommandFinished);

        QVERIFY(command->commandExecute());
        QVERIFY2(!command->commandExecute(), "one order, one execution");
        if (request.isEmpty()) {
            QVERIFY(m_router->sent.isEmpty());
        } else {
            QCOMPARE(m_router->sent.at(0).instruction, QStringLiteral("listenEventsData"));
            // A command that changes the tool's state hears only the replies its validator passes.
            const QString validator = c_validators.value(name);
            QCOMPARE(m_router->sent.at(0).parameters,
                     (validator.isEmpty() ? QVariantMap() : QVariantMap{{"subscription", true}, {"validator", validator}}));
            QTRY_COMPARE_WITH_TIMEOUT(m_router->writes().size(), 1, 5000);
            m_router->deliver(ack());
            QCOMPARE(m_router->writes().value(1), requestFrame(request, 1));
            m_router->deliver(ack());
            m_router->deliver(replyFrame(reply, true));
            QCOMPARE(m_router->writes().value(2), ack());
            QCOMPARE(m_router->closed, QList<quint64>{1});
            for (const DRecordingRouter::Sent& sent : qAsConst(m_router->sent))
                QCOMPARE(sent.timeout, 2000);
        }
        QCOMPARE(finished.count(), 1);
        QCOMPARE(finished.at(0).at(0).toBool(), true);
        for (auto it = results.cbegin(); it != results.cend(); ++it)
            QCOMPARE(command->commandResults().value(it.key()), it.value());
        for (auto it = properties.cbegin(); it != properties.cend(); ++it)
            QCOMPARE(m_plugin->getProperty(it.key(), QVariant()), it.value());
        QCOMPARE(g_warnings, warnings);
    }

    void endedCommandStaysEnded_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("stopAfterWrites");  // -1: the tool's error ends it
        QTest::addColumn<int>("waitMs");
        QTest::newRow("last frame after a tool error, same chunk") << "setLock" << -1 << 300;
        QTest::newRow("stopped before its header") << "setPingInterval" << 0 << 500;
        QTest::newRow("stopped while its retry timer runs") << "listProgram" << 1 << 3600;
    }

    // The host keeps the command after its end: nothing more is published, written or ended.
    void endedCommandStaysEnded()
    {
        QFETCH(QString, name);
        QFETCH(int, stopAfterWrites);
        QFETCH(int, waitMs);
        DAbstractCommand* command = make(name, {});
        QSignalSpy finished(command, &DAbstractCommand::sigCommandFinished);
        QSignalSpy updates(command, &DAbstractCommand::sigResultsUpdated);
        QVERIFY(command->commandExecute());
        if (stopAfterWrites < 0) {
            QTRY_COMPARE_WITH_TIMEOUT(m_router->writes().size(), 1, 5000);
            m_router->deliver(ack());
            m_router->deliver(ack());
            m_router->deliver(replyFrame("RESPONSE\r\nERRORCODE,5\r\n", false) + replyFrame(c_ok, true));
        } else {
            QTRY_COMPARE_WITH_TIMEOUT(m_router->writes().size(), stopAfterWrites, 5000);
            bool ok = true;
            command->finishTheCommand(ok);
        }
        QCOMPARE(finished.count(), 1);
        const int writes = m_router->writes().size();
        const int updated = updates.count();
        const QVariantMap results = command->commandResults();
        QTest::qWait(waitMs);
        bool ok = true;
        command->finishTheCommand(ok);
        m_router->deliver(replyFrame(c_ok, true));
        QCOMPARE(finished.count(), 1);
        QCOMPARE(m_router->writes().size(), writes);
        QCOMPARE(updates.count(), updated);
        QCOMPARE(command->commandResults(), results);
        QCOMPARE(m_router->closed, QList<quint64>{1});
        QCOMPARE(results.value("cmd_success"), QVariant(false));
    }

    // Read from the stored list alone: nothing reaches the driver. No list first, then the list's cases.
    void presetData()
    {
        const auto check = [this](const QVariant& progId, const QVariant& preset, const char* warning = nullptr) {
            g_warnings.clear();
            DAbstractCommand* command = make("getPresetData", {{"progId", progId}});
            QSignalSpy finished(command, &DAbstractCommand::sigCommandFinished);
            QVERIFY(command->commandExecute());
            QCOMPARE(finished.count(), 1);
            QCOMPARE(command->commandResults().value("cmd_success").toBool(), preset.isValid());
            QCOMPARE(command->commandResults().value("presetData"), QVariant(preset.toMap()));
            QCOMPARE(g_warnings, warning ? QStringList{warning} : QStringList());
            QVERIFY(m_router->sent.isEmpty());
        };
        check(1, QVariant(), "[HYTORC-GET_PRESET] Invalid program list property type");
        const QVariantMap b{{"unit", "inlb"}, {"torque", "12.345"}};  // another unit, a decimal torque
        m_plugin->setProperty("programList", QVariantList{program("A", "1", 1), program("B", "50", 5, b)}, false);
        check(5, QVariantMap{{"name", "B"}, {"type", "TQ"}, {"unit", "INLB"}, {"torque", 1234}, {"progId", 5}});
        check(2, QVariant());  // not stored
        check(0, QVariant(), "[HYTORC-GET_PRESET] Invalid progId: QVariant(int, 0)");
        check("abc", QVariant(), "[HYTORC-GET_PRESET] Invalid progId: QVariant(QString, \"abc\")");
    }

private:
    IPlugin* root() { return qobject_cast<IPlugin*>(m_loader.instance()); }
    DAbstractCommand* make(const QString& name, const QVariantMap& arguments)
    {
        m_command = m_plugin->declaredCommand(name)->newCommandInstance(arguments);
        return dynamic_cast<DAbstractCommand*>(m_command.data());
    }

    QPluginLoader m_loader;
    QScopedPointer<IPlugin> m_instance;
    DAbstractPlugin* m_plugin = nullptr;
    DRecordingRouter* m_router = nullptr;
    QSharedPointer<ICommand> m_command;
};

QTEST_GUILESS_MAIN(TestDevicePlugin)
#include "test_device_plugin.moc"
