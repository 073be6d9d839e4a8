#include "d_abstract_plugin_backend.h"

DAbstractPluginBackend::DAbstractPluginBackend(const QString& name, QObject* parent)
    : QObject(parent)
{
    setObjectName(name);
}

DAbstractPluginBackend::~DAbstractPluginBackend() = default;
