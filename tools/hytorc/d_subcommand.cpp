#include "d_subcommand.h"

#include "d_message_handler.h"

#include <cstdio>

int DSubcommand::run(const QStringList& arguments)
{
    QString message;
    bool helpShown = false;
    if (parse(arguments, &message, &helpShown))
        return execute();
    if (helpShown) {
        std::fputs(qPrintable(message), stdout);
        return CeExitSuccess;
    }
    DMessageHandler::say(message);
    return CeExitUsage;
}
