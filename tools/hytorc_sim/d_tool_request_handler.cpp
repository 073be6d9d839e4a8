#include "d_tool_request_handler.h"

#include "d_sim_options.h"
#include "d_tool_state.h"
#include "hytorc_hcp_constants.h"
#include "hytorc_hcp_frame.h"

#include <QHash>

namespace {

const QString c_lockFlag = QStringLiteral("OPEN_PROTOCOL_LOCK");

bool isText(const QByteArray& payload)
{
    for (const char character : payload) {
        const auto byte = static_cast<unsigned char>(character);
        const bool lineEnd = byte == '\r' || byte == '\n' || byte == '\t';
        if (!lineEnd && (byte < 0x20 || byte > 0x7E))
            return false;
    }
    return true;
}

QString errorLine(int code)
{
    return c_errorCodePrefix + QLatin1Char(',') + QString::number(code);
}

}  // namespace

DToolRequestHandler::DToolRequestHandler(DToolState* state, const DSimOptions& options)
    : m_state(state), m_framingWord(options.framingWord), m_forcedErrorCode(options.errorCode)
{
}

QStringList DToolRequestHandler::answer(const QByteArray& payload)
{
    m_requests << QString::fromUtf8(payload);
    const QStringList lines = HytorcHcpFrame::payloadLines(payload);
    if (lines.isEmpty() || !isText(payload))
        return reply(QString(), {c_failed});
    const QString& request = lines.first();
    if (m_forcedErrorCode != 0)
        return reply(request, {errorLine(m_forcedErrorCode)});
    const Handler handler = handlerFor(request);
    if (handler == nullptr) {
        qInfo("unknown request \"%s\"", qPrintable(request));
        return reply(request, {errorLine(c_errorUnknownRequest)});
    }
    const Outcome outcome = (this->*handler)(lines.value(1));
    if (outcome.errorCode != 0)
        return reply(request, {errorLine(outcome.errorCode)});
    return reply(request, outcome.data + QStringList{c_errorCodeOk, c_passed});
}

DToolRequestHandler::Handler DToolRequestHandler::handlerFor(const QString& request)
{
    static const QHash<QString, Handler> handlers{
        {QString::fromLatin1(c_cmdGetToolInfo).trimmed(), &DToolRequestHandler::getToolInfo},
        {QString::fromLatin1(c_cmdGetJobsProfile).trimmed(), &DToolRequestHandler::getJobsProfile},
        {QString::fromLatin1(c_cmdGetStateBattery).trimmed(), &DToolRequestHandler::getBattery},
        {QStringLiteral("SET JOBS PROFILE"), &DToolRequestHandler::setJobsProfile},
        {QStringLiteral("SET FLAGS OPEN_PROTOCOL"), &DToolRequestHandler::setOpenProtocol},
        {QStringLiteral("SET ADMIN ACCESS_LEVEL"), &DToolRequestHandler::setAccessLevel},
        {QStringLiteral("SET PING INTERVAL"), &DToolRequestHandler::setPingInterval},
    };
    return handlers.value(request, nullptr);
}

QStringList DToolRequestHandler::reply(const QString& echo, const QStringList& tail) const
{
    QStringList lines{m_framingWord};
    if (!echo.isEmpty())
        lines << echo;
    return lines + tail;
}

DToolRequestHandler::Outcome DToolRequestHandler::getToolInfo(const QString&)
{
    return {m_state->toolInfoValues()};
}

DToolRequestHandler::Outcome DToolRequestHandler::getJobsProfile(const QString&)
{
    return {m_state->profiles()};
}

DToolRequestHandler::Outcome DToolRequestHandler::getBattery(const QString&)
{
    return {{QString::number(m_state->batteryPercent())}};
}

DToolRequestHandler::Outcome DToolRequestHandler::setJobsProfile(const QString& argument)
{
    const QString name = argument.section(QLatin1Char(','), 0, 0).trimmed();
    if (name.isEmpty())
        return {{}, c_errorBadArgument};
    if (!m_state->activateProfile(name))
        return {{}, c_errorUnknownProfile};
    qInfo("active profile %s", qPrintable(m_state->activeProfileFields().join(QLatin1Char(','))));
    return {};
}

DToolRequestHandler::Outcome DToolRequestHandler::setOpenProtocol(const QString& argument)
{
    if (!argument.isEmpty() && argument != c_lockFlag)
        return {{}, c_errorBadArgument};
    m_state->setLocked(!argument.isEmpty());
    qInfo("tool %s", m_state->isLocked() ? "locked" : "unlocked");
    return {};
}

DToolRequestHandler::Outcome DToolRequestHandler::setAccessLevel(const QString& argument)
{
    if (!DToolState::isAccessLevel(argument))
        return {{}, c_errorBadArgument};
    m_state->setAccessLevel(argument);
    qInfo("access level %s", qPrintable(m_state->accessLevel()));
    return {};
}

DToolRequestHandler::Outcome DToolRequestHandler::setPingInterval(const QString& argument)
{
    bool ok = false;
    const int interval = argument.toInt(&ok);
    if (!ok || interval < 1)
        return {{}, c_errorBadArgument};
    m_state->setPingIntervalMs(interval);
    qInfo("ping interval %d ms", m_state->pingIntervalMs());
    return {};
}
