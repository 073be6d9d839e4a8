#ifndef D_REPORT_SHAPER_H
#define D_REPORT_SHAPER_H

#include <QByteArray>
#include <QString>
#include <QStringList>

// The shapes in which the tool lays out a tightening report in an event payload, the
// ones a listener publishes and the ones it must not:
// - "split": "SET EVENT LOG", then the whole line on a line of its own (published);
// - "inline": the header and the whole line on one line (published);
// - "inline-15": the header and the first 15 fields on one line (published);
// - "data-15": the header, then the first 15 fields on their own line (not published:
//   a line without the header needs more than 14 commas);
// - "short": the header and the first 14 fields (not published).
// "mixed" takes them in turn.
class DReportShaper
{
public:
    struct Report {
        QByteArray payload;
        QString line;  // the fields as the listener reads them
        QString shape;
        bool published = false;
    };

    static QStringList shapeNames();
    static bool isShape(const QString& name);

    explicit DReportShaper(const QString& shape);

    Report shape(const QString& line);

private:
    QString m_shape;
    int m_turn = 0;
};

#endif // D_REPORT_SHAPER_H
