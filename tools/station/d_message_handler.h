#ifndef D_MESSAGE_HANDLER_H
#define D_MESSAGE_HANDLER_H

#include <QString>
#include <QtGlobal>

// Every line that hytorc writes on stderr, its own and the plug-ins' log lines alike:
// one prefix, one line, and for a fault a technician can act on, what to check.
class DMessageHandler
{
public:
    // Routes Qt's message logger here. Below warnings is hidden unless `verbose`;
    // QT_LOGGING_RULES is read after that default, so it still decides.
    static void install(bool verbose);
    // The port that the hints name.
    static void setDevicePath(const QString& path);
    // Writes "hytorc: MESSAGE" on stderr, with what to check after a known fault.
    static void say(const QString& message);

private:
    static QString hintFor(const QString& message);
    static void write(const QString& line);
    static void handle(QtMsgType type, const QMessageLogContext& context, const QString& message);
};

#endif // D_MESSAGE_HANDLER_H
