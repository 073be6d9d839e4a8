#ifndef D_ABSTRACT_PLUGIN_BACKEND_H
#define D_ABSTRACT_PLUGIN_BACKEND_H

#include "fastdelegate.h"
#include "i_messenger.h"

#include <QObject>
#include <QVariantMap>

// Base of the QML backends of maintenance panels. Only what plug-ins build on today;
// the host's treatment queue joins it with the panel.
class DAbstractPluginBackend : public QObject
{
    Q_OBJECT
public:
    DAbstractPluginBackend(const QString& name, QObject* parent);
    ~DAbstractPluginBackend() override;

signals:
    void abstractBackendInitialized();
};

#endif // D_ABSTRACT_PLUGIN_BACKEND_H
