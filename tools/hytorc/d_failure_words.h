#ifndef D_FAILURE_WORDS_H
#define D_FAILURE_WORDS_H

#include <QStringList>
#include <QVariantMap>

// A failed command's reason in the user's words, with what to check: the engine's texts
// ("Tool returned error: ERRORCODE,2") and the commands that fail without a text.
class DFailureWords
{
public:
    struct DFailure {
        QString command;
        QVariantMap arguments;
        QString reason;          // the engine's text; empty when the command gave none
        QStringList undeclared;  // parameter names passed on that the command does not declare
        QStringList declared;
        bool listRead = false;   // a listProgram succeeded earlier in this run
    };

    // One line; empty when there is nothing to say.
    static QString explain(const DFailure& failure);

private:
    static QString toolRefusal(const DFailure& failure, const QString& code);
};

#endif // D_FAILURE_WORDS_H
