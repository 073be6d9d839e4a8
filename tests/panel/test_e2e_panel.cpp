// The maintenance panel as the workstation builds it: the plug-in's resource in a real
// QML engine (offscreen), its backend on the real runtime, serial driver and tool simulator.
#include "d_abstract_plugin.h"
#include "d_abstract_plugin_backend.h"
#include "d_backend_host.h"
#include "d_maintenance_panel_loader.h"
#include "d_panel_session.h"
#include "d_simulated_tool.h"
#include "d_test_workstation.h"

#include <QImage>
#include <QJSValue>
#include <QJsonObject>
#include <QQmlEngine>
#include <QQuickItem>
#include <QResource>
#include <QtTest>

namespace {

// What one test builds. Members go in reverse order: the panel and its engine before the
// plug-ins that registered its types.
struct DPanelRig {
    DSimulatedTool tool;
    DTestWorkstation station;
    DBackendHost backendHost{&station.runner};
    QQmlEngine engine;
    QScopedPointer<QQuickItem> panel;
};

} // namespace

class TestE2ePanel : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_rig.reset(new DPanelRig);
        m_warnings.clear();
        connect(&m_rig->engine, &QQmlEngine::warnings, this, [this](const QList<QQmlError>& warnings) {
            for (const QQmlError& warning : warnings)
                m_warnings << warning.toString();
        });
    }

    void cleanup()
    {
        m_rig.reset();
    }

    void loadsAndShowsToolInfo()
    {
        startPanel("{}");
        QResource panelResource(":/{4b2d6999-ab8e-4a72-bfb0-c962b68e7bda}/maintenance_panel.qml");
        QVERIFY(panelResource.compressionAlgorithm() != QResource::NoCompression);

        // Both at once: neither is lost.
        QSignalSpy released(m_backend, &DAbstractPluginBackend::treatmentReleased);
        QMetaObject::invokeMethod(item("idButtonGetToolInfo"), "clicked");
        QMetaObject::invokeMethod(item("idButtonLock"), "clicked");
        QVERIFY(m_rig->panel->property("toolInfoLoading").toBool());
        QObject* rows = item("toolInfoListModel");
        QTRY_COMPARE_WITH_TIMEOUT(rows->property("count").toInt(), 9, 60000);
        QVERIFY(!m_rig->panel->property("toolInfoLoading").toBool());
        QVERIFY(released.count() == 1 || released.wait(60000));
        QCOMPARE(released.first().at(2), QVariant(true));

        const QJsonObject state = stopTool();
        QCOMPARE(state.value("locked"), QJsonValue(true));
        const QJsonObject toolInfo = state.value("toolInfo").toObject();
        for (int i = 0; i < 9; ++i) {
            QJSValue row;
            QMetaObject::invokeMethod(rows, "get", Q_RETURN_ARG(QJSValue, row), Q_ARG(int, i));
            QCOMPARE(row.property("value").toString(), toolInfo.value(row.property("property").toString()).toString());
        }
        QCOMPARE(m_warnings, QStringList());
    }

    void actionsReachTheTool_data()
    {
        QTest::addColumn<QByteArray>("state");
        QTest::addColumn<QString>("program");
        QTest::addColumn<QString>("press");
        QTest::addColumn<QString>("treatment");  // empty: nothing may be sent
        QTest::addColumn<int>("kind");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("expected");
        const auto row = [](const char* row, const char* state, const char* program, const char* press,
                            const char* treatment, int kind, bool ok, const char* key, const QVariant& expected) {
            QTest::newRow(row) << QByteArray(state) << QString(program) << QString(press) << QString(treatment) << kind
                               << ok << QString(key) << expected;
        };
        row("apply program 2", "{}", "2", "idButtonApply", "setProgram", 200, true, "activeProfile", "P2");
        row("program not an integer", "{}", "2x", "idButtonApply", "", 0, false, "activeProfile", "P1");
        row("program not in the list", "{}", "9", "idButtonApply", "setProgram", 200, false, "activeProfile", "P1");
        row("lock", "{}", "", "idButtonLock", "setLock", 100, true, "locked", true);
        row("unlock", R"({"locked": true})", "", "idButtonUnlock", "setLock", 100, true, "locked", false);
        row("no such command", "{}", "", "setDirection", "setDirection", 300, false, "locked", false);
    }

    void actionsReachTheTool()
    {
        QFETCH(QByteArray, state);
        QFETCH(QString, program);
        QFETCH(QString, press);
        QFETCH(QString, treatment);
        QFETCH(int, kind);
        QFETCH(bool, ok);
        QFETCH(QString, key);
        QFETCH(QVariant, expected);
        startPanel(state);
        // The tool's programs are known once listed.
        if (!program.isEmpty())
            QCOMPARE(m_rig->station.run("listProgram", {}, 60000).results.value("cmd_success"), QVariant(true));
        item("idTextFieldProgram")->setProperty("text", program);

        QSignalSpy released(m_backend, &DAbstractPluginBackend::treatmentReleased);
        if (press == "setDirection")
            QMetaObject::invokeMethod(item("be"), "setDirection", Q_ARG(bool, true));
        else
            QMetaObject::invokeMethod(item(press), "clicked");
        QCOMPARE(m_backend->hasPendingTreatments(), !treatment.isEmpty());
        if (!treatment.isEmpty()) {
            QVERIFY(released.wait(60000));
            QCOMPARE(released.first(), (QVariantList{kind, treatment, ok}));
            const QString status = m_rig->panel->property("statusText").toString();
            // The tool answers: a refused program is not blamed on the link.
            QVERIFY2(status.startsWith(treatment + (ok ? ": done" : " failed: "))
                         && status.contains("program 9 is not in the program list") == (program == "9"), qPrintable(status));
        }
        QCOMPARE(stopTool().value(key).toVariant(), expected);
        QCOMPARE(m_warnings, QStringList());
    }

    // The viewer's exit status and what it says, from --help where no display can open on.
    void viewerRuns_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("said");
        const QString png = m_dir.filePath("panel.png");
        QTest::newRow("tool info, screenshot") << QStringList{"--tool-info", "--screenshot", png} << 0 << "";
        QTest::newRow("help, no display") << QStringList{"-platform", "xcb", "--help"} << 0 << "--tool-info";
        QTest::newRow("usage error") << QStringList{"-platform", "xcb", "--bogus"} << 2 << "Unknown option 'bogus'";
        QTest::newRow("tool info refused") << QStringList{"--sim-arg=--error-replies=5", "--tool-info", "--screenshot", png}
                                           << 1 << "getToolInfo failed";
    }

    void viewerRuns()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, said);
        QProcess viewer;
        viewer.setProcessChannelMode(QProcess::MergedChannels);
        viewer.start(qEnvironmentVariable("HYTORC_BUILD_DIR") + "/bin/hytorc-panel", arguments);
        QVERIFY(viewer.waitForFinished(90000));
        const QString output = QString::fromLocal8Bit(viewer.readAll());
        QVERIFY2(viewer.exitStatus() == QProcess::NormalExit && viewer.exitCode() == exitCode && output.contains(said),
                 qPrintable(output));
        // Taller than the bare panel: the nine rows of tool information are in.
        const QImage image(arguments.last());
        if (exitCode == 0 && arguments.contains("--screenshot"))
            QVERIFY2(image.width() >= 480 && image.height() > 400, qPrintable(QString::number(image.height())));
    }

    // A tool silent at first, then a link that drops and comes back: the header says connected
    // only while the tool answers; the link channel, shown on the panel, says the rest.
    void viewerFollowsTheLink()
    {
        QVERIFY(m_rig->tool.start({"--ignore-headers", "2", "--reopen-after", "1500"}));
        DPanelSession session({qEnvironmentVariable("HYTORC_BUILD_DIR") + "/plugins", m_rig->tool.linkPath()});
        int exitCode = 0;
        QVERIFY(session.start(&exitCode));
        // Each state as the backend gets it: a reconnection runs in a nested event loop.
        QObject* backend = findIn(session.panel(), "be");
        auto* model = backend->property("statusChannelsModel").value<QAbstractItemModel*>();
        QStringList seen;  // "+": the header says "Connected"
        const auto take = [&] {
            seen << model->index(0, 0).data(Qt::UserRole + 1 /* modelData */).value<QObject*>()->property("value").toString()
                        + (backend->property("isConnected").toBool() ? "+" : "");
        };
        take();
        connect(model, &QAbstractItemModel::modelReset, this, take);
        QStringList states{"waiting for the tool", "no answer from the tool", "connected+"};
        QTRY_COMPARE_WITH_TIMEOUT(seen, states, 30000);
        m_rig->tool.say("drop");
        states << "link lost" << "reconnecting" << "waiting for the tool" << "connected+";
        QTRY_COMPARE_WITH_TIMEOUT(seen, states, 30000);
        QQuickItem* shown = nullptr;
        QMetaObject::invokeMethod(findIn(session.panel(), "idRepeaterChannels"), "itemAt", Q_RETURN_ARG(QQuickItem*, shown), Q_ARG(int, 0));
        QCOMPARE(shown->property("text").toString(), "Link: connected");
    }

private:
    void startPanel(const QByteArray& state)
    {
        QFile stateFile(m_dir.filePath("state.json"));
        QVERIFY(stateFile.open(QIODevice::WriteOnly) && stateFile.write(state) == state.size());
        stateFile.close();
        QVERIFY(m_rig->tool.start({"--state", stateFile.fileName(), "--record", m_rig->tool.recordPath()}));
        QString error;
        QVERIFY2(m_rig->station.setUp(&error, m_rig->tool.linkPath()), qPrintable(error));
        m_rig->backendHost.addInstance(m_rig->station.device);
        m_rig->backendHost.setConnected(m_rig->station.device, true);

        DAbstractPluginBackend::setEngineHost(&m_rig->engine, &m_rig->backendHost);
        m_rig->panel.reset(
            DMaintenancePanelLoader::createPanel(&m_rig->engine, m_rig->station.device, "Tool \"A\"", "ref", &error));
        QVERIFY2(m_rig->panel, qPrintable(error));
        m_backend = qobject_cast<DAbstractPluginBackend*>(item("be"));
        QVERIFY(m_backend);
        QCOMPARE(m_backend->name(), QString("Tool \"A\""));
        QVERIFY(m_backend->isConnected());
        QCOMPARE(m_warnings, QStringList());
    }

    QObject* item(const QString& id) const { return findIn(m_rig->panel.data(), id); }
    static QObject* findIn(QObject* panel, const QString& id)
    {
        for (QObject* child : panel->findChildren<QObject*>()) {
            if (child->objectName().endsWith('.' + id))
                return child;
        }
        return nullptr;
    }

    // The simulator writes its state as it ends.
    QJsonObject stopTool() { return m_rig->tool.stopAndReadRecord().value("state").toObject(); }

    QTemporaryDir m_dir;
    QScopedPointer<DPanelRig> m_rig;
    DAbstractPluginBackend* m_backend = nullptr;
    QStringList m_warnings;
};

QTEST_MAIN(TestE2ePanel)
#include "test_e2e_panel.moc"
