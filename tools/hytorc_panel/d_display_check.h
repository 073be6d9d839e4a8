#ifndef D_DISPLAY_CHECK_H
#define D_DISPLAY_CHECK_H

#include <QString>
#include <QStringList>
#include <QtGlobal>

// Qt aborts with a page of text when its platform finds no display: this settles the platform
// before the GUI exists and turns a display that cannot be reached into one line and status 2.
class DDisplayCheck
{
public:
    // `platform`: the -platform given, or empty. Without a display, a screenshot is drawn
    // offscreen; anything else gets the one line to say (returned; empty when the GUI may start).
    static QString choosePlatform(const QString& platform, bool screenshot);
    // Holds Qt's lines while the GUI application starts, and ends the program when it cannot.
    static void guardStart();
    // The lines held while the GUI started, to be said now that it did.
    static QStringList endGuard();

private:
    static void handle(QtMsgType type, const QMessageLogContext& context, const QString& message);
};

#endif // D_DISPLAY_CHECK_H
