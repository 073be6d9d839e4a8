#ifndef D_SUBCOMMAND_H
#define D_SUBCOMMAND_H

#include <QStringList>

// A word of hytorc that is no tool command (`results`, `identify`): its options, then its work.
// --help prints and succeeds; a usage error is one line and exit status 2.
class DSubcommand
{
public:
    enum EnExitCode { CeExitSuccess = 0, CeExitFailure = 1, CeExitUsage = 2 };

    virtual ~DSubcommand() = default;
    // `arguments` from the word itself on.
    int run(const QStringList& arguments);

protected:
    // False with one line in *message, or with *helpShown and the help text in *message.
    virtual bool parse(const QStringList& arguments, QString* message, bool* helpShown) = 0;
    virtual int execute() = 0;
};

#endif // D_SUBCOMMAND_H
