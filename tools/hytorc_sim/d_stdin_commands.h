#ifndef D_STDIN_COMMANDS_H
#define D_STDIN_COMMANDS_H

#include <QByteArray>
#include <QObject>

class QSocketNotifier;

// Reads the operator's lines on standard input: "event", "nok" (the next tightening fails),
// "quiet", "drop", "quit", "scan TEXT" (TEXT from the scanner, \xHH for any byte) and
// "unplug-scanner". The end of the input only stops the reading; it never stops the simulator.
class DStdinCommands : public QObject
{
    Q_OBJECT

public:
    enum EnCommand { CeEvent, CeQuiet, CeDrop, CeQuit, CeNok, CeUnplugScanner };
    Q_ENUM(EnCommand)

    explicit DStdinCommands(QObject* parent = nullptr);

signals:
    void sigCommand(DStdinCommands::EnCommand command);
    void sigScan(const QByteArray& code);

private slots:
    void onReadable();

private:
    void takeLine(const QByteArray& line);
    static QByteArray unescaped(const QByteArray& text);

    QSocketNotifier* m_notifier;
    QByteArray m_pending;
};

#endif // D_STDIN_COMMANDS_H
