#ifndef D_OBJECT_H
#define D_OBJECT_H

#include <QObject>
#include <QString>

// Common base of the host's QObjects: an object that is born with a name.
class DObject : public QObject
{
    Q_OBJECT
public:
    explicit DObject(const QString& name, QObject* parent = nullptr);
    ~DObject() override;
};

#endif // D_OBJECT_H
