#include "d_maintenance_panel_loader.h"

#include "d_abstract_plugin.h"

#include <QFile>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QUrl>

namespace {

const QString c_panelFile = QStringLiteral("maintenance_panel.qml");

// The values land inside QML string literals.
QByteArray quoted(const QString& text)
{
    QString escaped = text;
    escaped.replace(QLatin1Char('\\'), QLatin1String("\\\\")).replace(QLatin1Char('"'), QLatin1String("\\\""));
    return escaped.toUtf8();
}

} // namespace

// Outside any namespace: the macro declares the resource's initialiser.
static void registerWorkplaceResources()
{
    static const bool registered = [] {
        Q_INIT_RESOURCE(app_workplace);
        return true;
    }();
    Q_UNUSED(registered)
}

QQuickItem* DMaintenancePanelLoader::createPanel(QQmlEngine* engine, const DAbstractPlugin* instance,
                                                 const QString& name, const QString& reference, QString* error)
{
    registerWorkplaceResources();
    const QString resource = QStringLiteral(":/%1/%2").arg(instance->pluginUuid().toString(), c_panelFile);
    QFile file(resource);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("plug-in \"%1\" has no maintenance panel (%2)").arg(instance->pluginName(), resource);
        return nullptr;
    }
    QByteArray text = file.readAll();
    text.replace("{OBJECT_NAME}", quoted(name))
        .replace("{OBJECT_ID}", quoted(instance->objectUuid().toString()))
        .replace("{OBJECT_REFERENCE}", quoted(reference));

    const QUrl served(QStringLiteral("qrc:/plugins/%1/qml/%2")
                          .arg(instance->pluginUuid().toString(QUuid::WithoutBraces), c_panelFile));
    QQmlComponent component(engine);
    component.setData(text, served);
    QObject* object = component.create();
    auto* panel = qobject_cast<QQuickItem*>(object);
    if (!panel) {
        delete object;
        *error = QStringLiteral("the maintenance panel of \"%1\" does not build: %2")
                     .arg(instance->pluginName(), component.errorString().trimmed());
        return nullptr;
    }
    return panel;
}
