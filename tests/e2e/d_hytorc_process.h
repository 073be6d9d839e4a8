#ifndef D_HYTORC_PROCESS_H
#define D_HYTORC_PROCESS_H

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>

#include <algorithm>

// hytorc (or another program of the build, as hytorcd) as a child process; every line it
// writes is kept with the time it arrived.
class DTimedHytorc
{
public:
    struct Line {
        qint64 ms;
        QByteArray text;
    };

    explicit DTimedHytorc(const QStringList& arguments,
                          const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment(),
                          const QString& program = QStringLiteral("hytorc"))
    {
        process.setProcessEnvironment(environment);
        QObject::connect(&process, &QProcess::readyReadStandardOutput, [this] { take(QProcess::StandardOutput, &out); });
        QObject::connect(&process, &QProcess::readyReadStandardError, [this] { take(QProcess::StandardError, &err); });
        clock.start();
        process.start(qEnvironmentVariable("HYTORC_BUILD_DIR") + "/bin/" + program, arguments);
    }
    ~DTimedHytorc()
    {
        process.kill();
        process.waitForFinished();
    }
    // When the first line holding `text` arrived; -1 if none (yet).
    static qint64 timeOf(const QList<Line>& lines, const QByteArray& text)
    {
        for (const Line& line : lines) {
            if (line.text.contains(text))
                return line.ms;
        }
        return -1;
    }
    int count(const QByteArray& text) const
    {
        return int(std::count_if(err.cbegin(), err.cend(), [&](const Line& l) { return l.text.contains(text); }));
    }
    QList<bool> successes() const
    {
        QList<bool> all;
        for (const Line& line : out) {
            const QJsonObject object = QJsonDocument::fromJson(line.text).object();
            if (object.contains("success"))
                all << object.value("success").toBool();
        }
        return all;
    }
    bool waitForEnd(int ms) const
    {
        return QTest::qWaitFor([this] { return process.state() == QProcess::NotRunning; }, ms);
    }
    static QByteArray text(const QList<Line>& lines)
    {
        QByteArray text;
        for (const Line& line : lines)
            text += line.text + '\n';
        return text;
    }
    QByteArray errText() const { return text(err); }
    QJsonObject json(int line) const { return QJsonDocument::fromJson(out.value(line).text).object(); }

    QProcess process;
    QElapsedTimer clock;
    QList<Line> out;
    QList<Line> err;

private:
    void take(QProcess::ProcessChannel channel, QList<Line>* lines)
    {
        process.setReadChannel(channel);
        while (process.canReadLine())
            lines->append({clock.elapsed(), process.readLine().trimmed()});
    }
};

#endif // D_HYTORC_PROCESS_H
