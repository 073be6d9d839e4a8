#ifndef D_ARGUMENT_CONVERTER_H
#define D_ARGUMENT_CONVERTER_H

#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

// Turns name=value words into a command's arguments, typed after its declared parameters.
class DArgumentConverter
{
public:
    struct DOrderArguments {
        QVariantMap arguments;
        QStringList notes;       // one line each, to say before the command runs
        QStringList undeclared;  // names passed on that the command does not declare
    };

    // `declared`: the command's parameter declarations ({name, type, default, ...}). Undeclared
    // names pass as text; a value that does not fit its type passes as text, noted with how the
    // command reads it. False with a one-line reason when a name is empty or close to a declared
    // one (a typo), a declared parameter without a default is missing, or a whole number lies
    // beyond its type's range.
    static bool convert(const QString& command, const QVariantList& declared, const QStringList& assignments,
                        DOrderArguments* order, QString* message);

private:
    static bool convertValue(const QString& type, const QString& text, QVariant* value);
    static QString missingParameter(const QVariantList& declared, const QVariantMap& given);
    static QString rangeError(const QString& type, const QString& text);
    static QString reading(const QString& command, const QString& name, const QString& type, const QVariant& given);
};

#endif // D_ARGUMENT_CONVERTER_H
