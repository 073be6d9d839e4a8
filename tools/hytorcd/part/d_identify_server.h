#ifndef D_IDENTIFY_SERVER_H
#define D_IDENTIFY_SERVER_H

#include <QObject>

class DStationPart;
class QLocalServer;
class QLocalSocket;

// The service's end of `hytorc identify`: a local socket beside the journal, mode 0600, so
// only the service's user and root may set an identifier; never on the network.
class DIdentifyServer : public QObject
{
    Q_OBJECT
public:
    static constexpr int c_clientTimeoutMs = 5000;

    DIdentifyServer(DStationPart* part, QObject* parent = nullptr);
    ~DIdentifyServer() override;

    // Listens at the socket of `journal`, replacing a stale one; false with one line.
    bool listen(const QString& journal, QString* error);

private:
    void onConnection();
    void onReadable(QLocalSocket* client);

    DStationPart* m_part;
    QLocalServer* m_server;
};

#endif // D_IDENTIFY_SERVER_H
