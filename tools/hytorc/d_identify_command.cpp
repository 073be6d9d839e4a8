#include "d_identify_command.h"

#include "d_identify_request.h"
#include "d_message_handler.h"
#include "d_result_journal.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QLocalSocket>


int DIdentifyCommand::execute()
{
    QString message;
    if (!send(&message)) {
        DMessageHandler::say(message);
        return CeExitFailure;
    }
    return CeExitSuccess;
}

bool DIdentifyCommand::parse(const QStringList& arguments, QString* message, bool* helpShown)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Makes VALUE the current identifier of the running hytorcd (part 1, the VIN, unless --part says\n"
        "otherwise): every result after it carries it.\n\n  hytorc identify VALUE [--part N] [--journal FILE]"));
    const QCommandLineOption help = parser.addHelpOption();
    parser.addOptions({
        {"part", "The identifier part, 1 (default) to 4.", "n"},
        {"journal", QStringLiteral("The service's journal, beside which its socket is (default: %1).")
                        .arg(DResultJournal::defaultPath()), "file"},
    });
    if (!parser.parse(arguments)) {
        *message = parser.errorText() + QStringLiteral(" (try: hytorc identify --help)");
        return false;
    }
    if (parser.isSet(help)) {
        *helpShown = true;
        *message = parser.helpText();
        return false;
    }
    bool ok = true;
    if (parser.isSet("part"))
        m_part = parser.value("part").toInt(&ok);
    if (!ok || m_part < 1 || m_part > 4) {
        *message = QStringLiteral("--part takes 1 to 4, not \"%1\"").arg(parser.value("part"));
        return false;
    }
    // The word "identify" stands where the parser expects the program.
    if (parser.positionalArguments().size() != 1) {
        *message = QStringLiteral("identify takes one VALUE (try: hytorc identify --help)");
        return false;
    }
    m_value = parser.positionalArguments().first();
    m_journalPath = parser.isSet("journal") ? parser.value("journal") : DResultJournal::defaultPath();
    return true;
}

bool DIdentifyCommand::send(QString* error) const
{
    const QString path = DIdentifyRequest::socketPath(m_journalPath);
    QLocalSocket socket;
    socket.connectToServer(path);
    if (!socket.waitForConnected(c_answerTimeoutMs)) {
        const QString journal = QFileInfo(m_journalPath).absoluteFilePath();
        switch (socket.error()) {
        case QLocalSocket::SocketAccessError:
            *error = QStringLiteral("%1: permission denied; run it as the service's user or root").arg(path);
            break;
        case QLocalSocket::ServerNotFoundError:
        case QLocalSocket::ConnectionRefusedError:
            *error = QStringLiteral("%1: no hytorcd listens there; is it running with the journal %2 (--journal)?").arg(path, journal);
            break;
        default:
            *error = QStringLiteral("%1: %2; is hytorcd running with the journal %3?").arg(path, socket.errorString(), journal);
        }
        return false;
    }
    socket.write(DIdentifyRequest::request(m_part, m_value));
    while (!socket.canReadLine() && socket.waitForReadyRead(c_answerTimeoutMs)) {
    }
    if (!socket.canReadLine()) {
        *error = QStringLiteral("%1: hytorcd did not answer within %2 s").arg(path).arg(c_answerTimeoutMs / 1000);
        return false;
    }
    return DIdentifyRequest::readReply(socket.readLine(DIdentifyRequest::c_maxLineBytes), error);
}
