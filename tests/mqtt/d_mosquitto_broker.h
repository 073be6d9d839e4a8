#ifndef D_MOSQUITTO_BROKER_H
#define D_MOSQUITTO_BROKER_H

#include <QFile>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

#include <signal.h>

// Debian's mosquitto on a free loopback port, stopped by its process id. Started again, it
// takes the same port and the sessions it saved when it stopped (a subscriber's included).
class DMosquittoBroker
{
public:
    // `listenerLines` go under the listener (TLS files); the broker's files go into `folder`.
    explicit DMosquittoBroker(const QString& folder, const QByteArray& listenerLines = {})
        : m_folder(folder.toUtf8()), m_lines(listenerLines)
    {
        QTcpServer probe;
        probe.listen(QHostAddress::LocalHost);
        m_port = probe.serverPort();
    }
    ~DMosquittoBroker() { stop(); }

    // False when it does not accept connections within 5 s.
    bool start()
    {
        QFile conf(m_folder + "/mosquitto.conf");
        conf.open(QIODevice::WriteOnly | QIODevice::Truncate);
        conf.write("listener " + QByteArray::number(m_port) + " 127.0.0.1\n" + m_lines + "allow_anonymous true\nuser root\n"
                   "persistence true\npersistence_location " + m_folder + "/\nlog_dest file " + m_folder + "/mosquitto.log\n");
        conf.close();
        m_process.start(QStringLiteral("mosquitto"), {QStringLiteral("-c"), conf.fileName()});
        return QTest::qWaitFor([this] {
            QTcpSocket socket;
            socket.connectToHost(QHostAddress::LocalHost, m_port);
            return m_process.state() == QProcess::Running && socket.waitForConnected(200);
        }, 5000);
    }
    void stop()
    {
        if (m_process.state() != QProcess::NotRunning && ::kill(pid_t(m_process.processId()), SIGTERM) == 0)
            m_process.waitForFinished(5000);
    }
    quint16 port() const { return m_port; }

private:
    QByteArray m_folder;
    QByteArray m_lines;
    quint16 m_port = 0;
    QProcess m_process;
};

#endif // D_MOSQUITTO_BROKER_H
