#include "d_identify_server.h"

#include "d_identify_request.h"
#include "d_station_part.h"

#include <QFile>
#include <QLocalServer>
#include <QLocalSocket>
#include <QTimer>

DIdentifyServer::DIdentifyServer(DStationPart* part, QObject* parent)
    : QObject(parent)
    , m_part(part)
    , m_server(new QLocalServer(this))
{
    // Made in a private folder and moved in place: never reachable by others, even for a moment.
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    connect(m_server, &QLocalServer::newConnection, this, &DIdentifyServer::onConnection);
}

DIdentifyServer::~DIdentifyServer() { m_server->close(); }

bool DIdentifyServer::listen(const QString& journal, QString* error)
{
    const QString path = DIdentifyRequest::socketPath(journal);
    QLocalServer::removeServer(path);
    if (!m_server->listen(path)) {
        *error = QStringLiteral("identify socket %1: %2 (hytorc identify will not reach the service)")
                     .arg(path, m_server->errorString());
        return false;
    }
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner);
    return true;
}

void DIdentifyServer::onConnection()
{
    while (QLocalSocket* client = m_server->nextPendingConnection()) {
        connect(client, &QLocalSocket::disconnected, client, &QObject::deleteLater);
        connect(client, &QLocalSocket::readyRead, this, [this, client] { onReadable(client); });
        // A client that says nothing is not waited for.
        QTimer::singleShot(c_clientTimeoutMs, client, [client] { client->abort(); });
    }
}

void DIdentifyServer::onReadable(QLocalSocket* client)
{
    if (!client->canReadLine()) {
        if (client->bytesAvailable() > DIdentifyRequest::c_maxLineBytes)
            client->abort();
        return;
    }
    int part = 0;
    QString value;
    QString error;
    if (!DIdentifyRequest::readRequest(client->readLine(DIdentifyRequest::c_maxLineBytes), &part, &value))
        error = QStringLiteral("the request is not one hytorc identify sends");
    else
        m_part->identify(part, value, QStringLiteral("hytorc identify"), &error);
    client->write(DIdentifyRequest::reply(error));
    client->disconnectFromServer();
}
