#include "d_display_check.h"

#include "d_panel_session.h"

#include <cstdio>
#include <cstdlib>

namespace {

const char* const c_check = "check DISPLAY, or give --screenshot FILE, which needs no display";

QStringList& heldLines()
{
    static QStringList lines;
    return lines;
}

} // namespace

QString DDisplayCheck::choosePlatform(const QString& platform, bool screenshot)
{
    const bool chosen = !platform.isEmpty() || !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM");
    if (chosen || !qEnvironmentVariableIsEmpty("DISPLAY"))
        return QString();
    if (screenshot) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        return QString();
    }
    return QStringLiteral("no display to show the panel on (DISPLAY is not set): run it in a desktop session, "
                          "or give --screenshot FILE, which needs none");
}

void DDisplayCheck::guardStart()
{
    qInstallMessageHandler(&DDisplayCheck::handle);
}

QStringList DDisplayCheck::endGuard()
{
    qInstallMessageHandler(nullptr);
    return heldLines();
}

// Qt says why (its platform's warning) before the fatal line that would abort: the first says it.
void DDisplayCheck::handle(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    if (type == QtWarningMsg || type == QtCriticalMsg)
        heldLines() << message.trimmed();
    if (type != QtFatalMsg)
        return;
    const QString why = heldLines().value(0, message.section(QLatin1Char('.'), 0, 0)).trimmed();
    std::fprintf(stderr, "hytorc-panel: cannot show the panel: %s; %s\n", qPrintable(why), c_check);
    std::_Exit(DPanelSession::CeExitUsage);
}
