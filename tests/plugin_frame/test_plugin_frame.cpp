// The plug-in as the host meets it: a library that Qt's own loader reads and loads.
#include "d_abstract_command.h"
#include "d_abstract_plugin.h"

#include <QCborMap>
#include <QCborValue>
#include <QFile>
#include <QJsonObject>
#include <QLibrary>
#include <QPluginLoader>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QtTest>

namespace {

const QString c_iid = QStringLiteral("fr.vexo.rd.box.PDeviceHytorc");
const QUuid c_pluginUuid(QStringLiteral("{4b2d6999-ab8e-4a72-bfb0-c962b68e7bda}"));

QString pluginPath()
{
    return qEnvironmentVariable("HYTORC_BUILD_DIR") + QStringLiteral("/plugins/libp_device_hytorc.so");
}

} // namespace

class TestPluginFrame : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void metadataThroughQt();
    void metadataBlockInTheBinary();
    void rootInstanceEntry();
    void identityAndInstances();
    void commandDeclaration();

private:
    IPlugin* root() { return qobject_cast<IPlugin*>(m_loader.instance()); }
    QPluginLoader m_loader;
};

void TestPluginFrame::initTestCase()
{
    QVERIFY2(QFile::exists(pluginPath()), qPrintable(pluginPath()));
    m_loader.setFileName(pluginPath());
    QVERIFY2(m_loader.load(), qPrintable(m_loader.errorString()));
}

void TestPluginFrame::metadataThroughQt()
{
    const QJsonObject meta = m_loader.metaData();
    QCOMPARE(meta.value(QStringLiteral("IID")).toString(), c_iid);
    QCOMPARE(meta.value(QStringLiteral("className")).toString(), QStringLiteral("PDeviceHytorc"));
    QVERIFY(!meta.value(QStringLiteral("debug")).toBool());
    QVERIFY(meta.value(QStringLiteral("MetaData")).toObject().isEmpty());

    const QString tool = QStandardPaths::findExecutable(QStringLiteral("qtplugininfo"));
    if (tool.isEmpty())
        QSKIP("qtplugininfo is not installed");
    QProcess info;
    info.start(tool, {QStringLiteral("--full-json"), pluginPath()});
    QVERIFY(info.waitForFinished(30000));
    const QByteArray out = info.readAllStandardOutput();
    QVERIFY2(out.contains(c_iid.toLatin1()), out.constData());
    QVERIFY2(out.contains("\"className\": \"PDeviceHytorc\""), out.constData());
}

// The exact bytes the host's loader reads without loading the library.
void TestPluginFrame::metadataBlockInTheBinary()
{
    QFile file(pluginPath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray binary = file.readAll();
    const QByteArray marker("QTMETADATA !");
    const int at = binary.indexOf(marker);
    QVERIFY(at >= 0);
    QCOMPARE(binary.indexOf(marker, at + 1), -1);
    QCOMPARE(binary.mid(at + marker.size(), 4), QByteArray::fromHex("00050F00"));

    const QCborValue cbor = QCborValue::fromCbor(binary.mid(at + marker.size() + 4));
    QVERIFY(cbor.isMap());
    const QCborMap map = cbor.toMap();
    QCOMPARE(map.size(), 2);
    QCOMPARE(map.value(2).toString(), c_iid);
    QCOMPARE(map.value(3).toString(), QStringLiteral("PDeviceHytorc"));
}

void TestPluginFrame::rootInstanceEntry()
{
    QLibrary library(pluginPath());
    QVERIFY(library.load());
    using Entry = QObject* (*)();
    const auto entry = reinterpret_cast<Entry>(library.resolve("qt_plugin_instance"));
    QVERIFY(entry);

    QObject* first = entry();
    QVERIFY(first);
    QCOMPARE(entry(), first);
    auto* plugin = qobject_cast<IPlugin*>(first);
    QVERIFY(plugin);
    QVERIFY(plugin->objectUuid().isNull());
    QCOMPARE(first->parent(), nullptr);

    delete first;
    QObject* second = entry();
    QVERIFY(second);
    QVERIFY(qobject_cast<IPlugin*>(second));
    QCOMPARE(entry(), second);
}

void TestPluginFrame::identityAndInstances()
{
    IPlugin* plugin = root();
    QVERIFY(plugin);
    QCOMPARE(plugin->pluginUuid(), c_pluginUuid);
    QCOMPARE(plugin->pluginName(), QStringLiteral("Plugin Device Hytorc"));
    QCOMPARE(quint64(plugin->pluginType()), quint64(1147500137));
    QCOMPARE(plugin->pluginVersion(), quint64(1) << 48);
    QCOMPARE(QByteArray(plugin->pluginSubTypeName()), QByteArray());

    const QUuid uuidA = QUuid::createUuid();
    QScopedPointer<IPlugin> a(plugin->createInstance(uuidA));
    QScopedPointer<IPlugin> nullUuid(plugin->createInstance(QUuid()));
    QVERIFY(a && nullUuid);
    QVERIFY(a.data() != plugin && a.data() != nullUuid.data());
    QCOMPARE(a->objectUuid(), uuidA);
    QVERIFY(nullUuid->objectUuid().isNull());
    for (IPlugin* instance : {a.data(), nullUuid.data()}) {
        QCOMPARE(instance->pluginUuid(), c_pluginUuid);
        QCOMPARE(quint64(instance->pluginType()), quint64(1147500137));
        bool ok = false;
        const QVariant typeName = instance->getProperty(QStringLiteral("typeName"), &ok);
        QVERIFY(ok);
        QCOMPARE(typeName.userType(), int(QMetaType::QString));
        QVERIFY(typeName.toString().isEmpty());
        QCOMPARE(dynamic_cast<QObject*>(instance)->parent(), nullptr);
    }

    // Nothing of one instance leaks into another.
    dynamic_cast<DAbstractPlugin*>(a.data())->setProperty(QStringLiteral("lock"), true, false);
    bool found = true;
    nullUuid->getProperty(QStringLiteral("lock"), &found);
    QVERIFY(!found);
}

void TestPluginFrame::commandDeclaration()
{
    QScopedPointer<IPlugin> first(root()->createInstance(QUuid::createUuid()));
    QScopedPointer<IPlugin> second(root()->createInstance(QUuid::createUuid()));
    auto* pluginA = dynamic_cast<DAbstractPlugin*>(first.data());
    auto* pluginB = dynamic_cast<DAbstractPlugin*>(second.data());
    QVERIFY(pluginA && pluginB);

    const QStringList expected{"listenEventsData", "getPresetData", "setPingInterval", "listProgram", "setProgram",
                               "setLock", "setLevelAccess", "setKeepAliveFonction", "getToolInfo"};
    QSignalSpy done(pluginA, &DAbstractPlugin::sigCommandsInitDone);
    pluginA->initPluginCommands();
    QCOMPARE(done.count(), 1);
    QCOMPARE(done.at(0).at(0).toUuid(), pluginA->objectUuid());
    QCOMPARE(done.at(0).at(1).toStringList(), expected);
    QCOMPARE(pluginA->commandNames(), expected);

    // A second round replaces the set rather than doubling it.
    pluginA->initPluginCommands();
    QCOMPARE(pluginA->commandNames(), expected);

    pluginB->initPluginCommands();
    for (const QString& name : expected) {
        DAbstractCommand* a = pluginA->declaredCommand(name);
        DAbstractCommand* b = pluginB->declaredCommand(name);
        QVERIFY(a && b && a != b);
        QCOMPARE(a->parent(), pluginA);
        QCOMPARE(b->parent(), pluginB);
    }
    QCOMPARE(pluginA->getFunctionDescription(QStringLiteral("getToolInfo")).value(QStringLiteral("description")),
             QVariant(QStringLiteral("Get tool identification info (via HytorcHcpComm)")));
}

QTEST_GUILESS_MAIN(TestPluginFrame)
#include "test_plugin_frame.moc"
