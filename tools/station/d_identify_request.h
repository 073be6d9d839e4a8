#ifndef D_IDENTIFY_REQUEST_H
#define D_IDENTIFY_REQUEST_H

#include <QByteArray>
#include <QString>

// `hytorc identify` talking to the running hytorcd: one JSON line each way over a local socket
// beside the service's journal (mode 0600: the service's user and root only).
class DIdentifyRequest
{
public:
    static constexpr int c_maxLineBytes = 4096;

    // The socket of the service that writes `journal`: results.db -> results.sock in its folder.
    static QString socketPath(const QString& journal);

    // {"part":N,"value":"..."}
    static QByteArray request(int part, const QString& value);
    static bool readRequest(const QByteArray& line, int* part, QString* value);
    // {"ok":true} or {"error":"..."}
    static QByteArray reply(const QString& error);
    // False with the service's reason when it refused; a line that is no reply is said so.
    static bool readReply(const QByteArray& line, QString* error);
};

#endif // D_IDENTIFY_REQUEST_H
