#ifndef D_MAINTENANCE_PANEL_LOADER_H
#define D_MAINTENANCE_PANEL_LOADER_H

#include <QString>

class DAbstractPlugin;
class QQmlEngine;
class QQuickItem;

// Builds a plug-in's maintenance panel the workstation's way: the file
// "maintenance_panel.qml" under the plug-in's uuid in its resources, with the
// placeholders "{OBJECT_NAME}", "{OBJECT_ID}" and "{OBJECT_REFERENCE}" replaced, served
// from qrc:/plugins/<uuid>/qml/ so that its imports "../../../applications/AppWorkplace/
// gui/..." reach the workstation's own components.
class DMaintenancePanelLoader
{
public:
    // Null with *error (what failed, the QML errors one per line) when it cannot be built.
    // The engine must outlive nothing of the plug-in: destroy it before unloading the plug-ins.
    static QQuickItem* createPanel(QQmlEngine* engine, const DAbstractPlugin* instance, const QString& name,
                                   const QString& reference, QString* error);
};

#endif // D_MAINTENANCE_PANEL_LOADER_H
