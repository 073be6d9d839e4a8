#ifndef D_IDENTIFY_COMMAND_H
#define D_IDENTIFY_COMMAND_H

#include "d_subcommand.h"

// `hytorc identify VALUE [--part N]`: hands an identifier to the running hytorcd over its local
// socket, for a person at the station; the service's answer is the outcome.
class DIdentifyCommand : public DSubcommand
{
public:
    static constexpr int c_answerTimeoutMs = 5000;

protected:
    bool parse(const QStringList& arguments, QString* message, bool* helpShown) override;
    int execute() override;

private:
    bool send(QString* error) const;

    QString m_journalPath;
    QString m_value;
    int m_part = 1;
};

#endif // D_IDENTIFY_COMMAND_H
