#ifndef D_ARGUMENT_CONVERTER_H
#define D_ARGUMENT_CONVERTER_H

#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

// Turns name=value words into a command's arguments, typed after its declared parameters.
class DArgumentConverter
{
public:
    // `declared`: the command's parameter declarations ({name, type, ...}). Undeclared
    // names, and values that do not fit their type, pass as text. False with a one-line
    // reason when a name is empty.
    static bool convert(const QVariantList& declared, const QStringList& assignments, QVariantMap* arguments,
                        QString* message);

private:
    static bool convertValue(const QString& type, const QString& text, QVariant* value);
};

#endif // D_ARGUMENT_CONVERTER_H
