#ifndef D_OBJECT_LIST_MODEL_H
#define D_OBJECT_LIST_MODEL_H

#include <QAbstractListModel>
#include <QList>
#include <QSharedPointer>

// What every object list model shows QML: one row per object, one role "modelData"
// holding the object itself, and `changed` when the whole list is replaced or cleared.
class DAbstractObjectListModel : public QAbstractListModel
{
    Q_OBJECT
public:
    enum EnRole { CeRoleModelData = Qt::UserRole + 1 };

    explicit DAbstractObjectListModel(QObject* parent = nullptr);

    QHash<int, QByteArray> roleNames() const override;

signals:
    void changed();
};

// The host's object list model over shared objects of type T (a QObject).
template <class T>
class DObjectListModel : public DAbstractObjectListModel
{
public:
    explicit DObjectListModel(QObject* parent = nullptr)
        : DAbstractObjectListModel(parent)
    {
    }

    int rowCount(const QModelIndex& parent = QModelIndex()) const override
    {
        return parent.isValid() ? 0 : m_objects.size();
    }

    QVariant data(const QModelIndex& index, int role) const override
    {
        if (role != CeRoleModelData || index.parent().isValid() || index.row() < 0 || index.row() >= m_objects.size())
            return {};
        return QVariant::fromValue<QObject*>(m_objects.at(index.row()).data());
    }

    QList<QSharedPointer<T>> objects() const { return m_objects; }

    void setObjects(const QList<QSharedPointer<T>>& objects)
    {
        beginResetModel();
        m_objects = objects;
        endResetModel();
        emit changed();
    }

    void clear() { setObjects({}); }

private:
    QList<QSharedPointer<T>> m_objects;
};

#endif // D_OBJECT_LIST_MODEL_H
