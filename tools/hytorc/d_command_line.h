#ifndef D_COMMAND_LINE_H
#define D_COMMAND_LINE_H

#include <QList>
#include <QStringList>
#include <QVariantMap>

// What the user asked of the command-line host.
class DCommandLine
{
public:
    struct Order {
        QString name;
        QStringList assignments;  // name=value, as typed
    };

    // Parses the program's arguments; false with a one-line reason (or the help text) in *message.
    bool parse(const QStringList& arguments, QString* message);

    QString pluginDirectory;
    QString device;
    QString outputPath;  // where a recurrent command's results are appended
    QStringList simulatorArguments;
    bool json = false;
    bool trace = false;
    bool listOnly = false;
    bool helpShown = false;
    double forSeconds = 0;
    double timeoutSeconds = 0;
    QList<Order> orders;

private:
    bool parseOrders(const QStringList& words, QString* message);
};

#endif // D_COMMAND_LINE_H
