#ifndef D_MESSAGE_HANDLER_H
#define D_MESSAGE_HANDLER_H

#include <QString>
#include <QtGlobal>

// Every line that hytorc writes on stderr, its own and the plug-ins' log lines alike:
// one prefix, one line; a log line repeated many times a second is counted, not repeated.
class DMessageHandler
{
public:
    // Routes Qt's message logger here. Below warnings is hidden unless `verbose`;
    // QT_LOGGING_RULES is read after that default, so it still decides.
    static void install(bool verbose);
    // The port that the tool is reached through, for the hints that name it.
    static void setDevicePath(const QString& path);
    static QString devicePath();
    // Writes "hytorc: MESSAGE" on stderr.
    static void say(const QString& message);
    // Writes "hytorc: MESSAGE; CHECK": a fault and what the technician should check, known where it is raised.
    static void say(const QString& message, const QString& check);

private:
    static void write(const QString& line);
    static void handle(QtMsgType type, const QMessageLogContext& context, const QString& message);
    static bool collapsed(const QString& message);
    static void sayRepeats();
};

#endif // D_MESSAGE_HANDLER_H
