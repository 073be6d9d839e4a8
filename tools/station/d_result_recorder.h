#ifndef D_RESULT_RECORDER_H
#define D_RESULT_RECORDER_H

#include <QFile>
#include <QMap>
#include <QStringList>
#include <QVariantMap>

// The tightening results a recurrent command streams: each one appended to a file as
// it arrives (JSON lines, or CSV when the name ends in .csv), flushed at once so that
// a crash loses nothing already received; and the counts for the closing summary.
class DResultRecorder
{
public:
    // Without a path, results are only counted. False with a reason when the file cannot be opened.
    bool open(const QString& path, QString* error);
    // False with a reason when the file refuses the line (the result is still counted).
    bool record(const QVariantMap& result, QString* error);
    // "N results (PASSED a, FAILED b)", the statuses in order of name.
    QString summary() const;

private:
    void writeLine(const QByteArray& line, QString* error, bool* ok);

    QFile m_file;
    bool m_csv = false;
    int m_count = 0;
    QMap<QString, int> m_statuses;
};

#endif // D_RESULT_RECORDER_H
