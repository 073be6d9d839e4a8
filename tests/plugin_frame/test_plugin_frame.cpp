// The plug-in as the host meets it: a library that Qt's own loader reads and loads.
#include "d_abstract_command.h"
#include "d_abstract_plugin.h"

#include <QCborMap>
#include <QCborValue>
#include <QFile>
#include <QJsonObject>
#include <QLibrary>
#include <QPluginLoader>
#include <QSignalSpy>
#include <QtTest>

namespace {

const QString c_iid = QStringLiteral("fr.vexo.rd.box.PDeviceHytorc");
const QUuid c_pluginUuid(QStringLiteral("{4b2d6999-ab8e-4a72-bfb0-c962b68e7bda}"));
// The architecture byte says "debug build" in a build without QT_NO_DEBUG, as Qt's loader expects.
#ifdef QT_NO_DEBUG
constexpr bool c_debugBuild = false;
#else
constexpr bool c_debugBuild = true;
#endif

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
    void metadata();
    void rootInstanceEntry();
    void identityAndInstances();
    void commandDeclaration();

private:
    IPlugin* root() { return qobject_cast<IPlugin*>(m_loader.instance()); }
    QPluginLoader m_loader;
};

void TestPluginFrame::initTestCase()
{
    m_loader.setFileName(pluginPath());
    QVERIFY2(m_loader.load(), qPrintable(m_loader.errorString()));
}

// What Qt reads, and the exact bytes it reads them from without loading the library.
void TestPluginFrame::metadata()
{
    const QJsonObject meta = m_loader.metaData();
    QCOMPARE(meta.value(QStringLiteral("IID")).toString(), c_iid);
    QCOMPARE(meta.value(QStringLiteral("className")).toString(), QStringLiteral("PDeviceHytorc"));
    QCOMPARE(meta.value(QStringLiteral("debug")).toBool(), c_debugBuild);
    QVERIFY(meta.value(QStringLiteral("MetaData")).toObject().isEmpty());

    QFile file(pluginPath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray binary = file.readAll();
    const QByteArray marker("QTMETADATA !");
    const int at = binary.indexOf(marker);
    QVERIFY(at >= 0);
    QCOMPARE(binary.indexOf(marker, at + 1), -1);
    QCOMPARE(binary.mid(at + marker.size(), 4), QByteArray::fromHex("00050F") + char(c_debugBuild ? 1 : 0));
    const QCborMap map = QCborValue::fromCbor(binary.mid(at + marker.size() + 4)).toMap();
    QCOMPARE(map.size(), 2);
    QCOMPARE(map.value(2).toString(), c_iid);
    QCOMPARE(map.value(3).toString(), QStringLiteral("PDeviceHytorc"));
}

void TestPluginFrame::rootInstanceEntry()
{
    QLibrary library(pluginPath());
    QVERIFY(library.load());
    const auto entry = reinterpret_cast<QObject* (*)()>(library.resolve("qt_plugin_instance"));
    QVERIFY(entry);
    QObject* first = entry();
    QCOMPARE(entry(), first);
    QVERIFY(qobject_cast<IPlugin*>(first)->objectUuid().isNull());
    QCOMPARE(first->parent(), nullptr);
    delete first;
    QObject* second = entry();
    QVERIFY(qobject_cast<IPlugin*>(second));
    QCOMPARE(entry(), second);
}

void TestPluginFrame::identityAndInstances()
{
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

void TestPluginFrame::commandDeclaration()
{
    QScopedPointer<IPlugin> first(root()->createInstance(QUuid::createUuid()));
    QScopedPointer<IPlugin> second(root()->createInstance(QUuid::createUuid()));
    auto* pluginA = dynamic_cast<DAbstractPlugin*>(first.data());
    auto* pluginB = dynamic_cast<DAbstractPlugin*>(second.data());
    const QStringList expected{"searchAndConnect", "listenEventsData", "getPresetData", "startDetection",
                               "setPingInterval", "listProgram", "setProgram", "setLock", "setLevelAccess",
                               "setKeepAliveFonction", "checkSerialId", "getToolInfo"};
    QSignalSpy done(pluginA, &DAbstractPlugin::sigCommandsInitDone);
    pluginA->initPluginCommands();
    pluginA->initPluginCommands(); // a second round replaces the set rather than doubling it
    pluginB->initPluginCommands();
    QCOMPARE(done.count(), 2);
    QCOMPARE(done.at(0).at(0).toUuid(), pluginA->objectUuid());
    QCOMPARE(done.at(0).at(1).toStringList(), pluginA->commandNames());
    QCOMPARE(pluginB->commandNames(), pluginA->commandNames());
    QCOMPARE(pluginA->commandNames(), expected);
    for (const QString& name : pluginA->commandNames()) {
        QCOMPARE(pluginA->commandNames().count(name), 1);
        QCOMPARE(pluginA->declaredCommand(name)->parent(), pluginA);
        QCOMPARE(pluginB->declaredCommand(name)->parent(), pluginB);
    }
    QCOMPARE(pluginA->getFunctionDescription(QStringLiteral("getToolInfo")).value(QStringLiteral("description")),
             QVariant(QStringLiteral("Get tool identification info (via HytorcHcpComm)")));
}

QTEST_GUILESS_MAIN(TestPluginFrame)
#include "test_plugin_frame.moc"
