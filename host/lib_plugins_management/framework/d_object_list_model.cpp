#include "d_object_list_model.h"

DAbstractObjectListModel::DAbstractObjectListModel(QObject* parent)
    : QAbstractListModel(parent)
{
}

QHash<int, QByteArray> DAbstractObjectListModel::roleNames() const
{
    return {{CeRoleModelData, QByteArrayLiteral("modelData")}};
}
