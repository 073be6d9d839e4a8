#ifndef D_TOOL_REQUEST_HANDLER_H
#define D_TOOL_REQUEST_HANDLER_H

#include <QByteArray>
#include <QString>
#include <QStringList>

class DSimOptions;
class DToolState;

// Turns one request text into the lines of the tool's reply: the framing word, the echo
// of the request's first line, the data lines, then "ERRORCODE,0" and "PASSED", or an
// "ERRORCODE,n" line when the request is refused.
class DToolRequestHandler
{
public:
    static constexpr int c_errorUnknownRequest = 1;
    static constexpr int c_errorBadArgument = 2;
    static constexpr int c_errorUnknownProfile = 3;

    DToolRequestHandler(DToolState* state, const DSimOptions& options);

    QStringList answer(const QByteArray& payload);
    // Every request received, as its text.
    const QStringList& requests() const { return m_requests; }

private:
    struct Outcome {
        QStringList data;
        int errorCode = 0;
    };
    using Handler = Outcome (DToolRequestHandler::*)(const QString& argument);

    static Handler handlerFor(const QString& request);
    QStringList reply(const QString& echo, const QStringList& tail) const;

    Outcome getToolInfo(const QString& argument);
    Outcome getJobsProfile(const QString& argument);
    Outcome getBattery(const QString& argument);
    Outcome setJobsProfile(const QString& argument);
    Outcome setOpenProtocol(const QString& argument);
    Outcome setAccessLevel(const QString& argument);
    Outcome setPingInterval(const QString& argument);

    DToolState* m_state;
    QString m_framingWord;
    int m_forcedErrorCode;
    QStringList m_requests;
};

#endif // D_TOOL_REQUEST_HANDLER_H
