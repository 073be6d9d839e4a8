#include "d_report_shaper.h"

#include "hytorc_hcp_constants.h"

namespace {

const QString c_mixed = QStringLiteral("mixed");
const QByteArray c_lineEnd("\r\n");

struct DShape {
    const char* name;
    int fields;  // 0: all of them
    bool ownLine;
    bool published;
};

const DShape c_shapes[] = {
    {"split", 0, true, true},      {"inline", 0, false, true}, {"inline-15", 15, false, true},
    {"data-15", 15, true, false},  {"short", 14, false, false},
};

} // namespace

QStringList DReportShaper::shapeNames()
{
    QStringList names;
    for (const DShape& shape : c_shapes)
        names << QString::fromLatin1(shape.name);
    return names << c_mixed;
}

bool DReportShaper::isShape(const QString& name)
{
    return shapeNames().contains(name);
}

DReportShaper::DReportShaper(const QString& shape) : m_shape(shape)
{
}

DReportShaper::Report DReportShaper::shape(const QString& line)
{
    const int count = int(sizeof c_shapes / sizeof c_shapes[0]);
    const int index = m_shape == c_mixed ? m_turn++ % count : int(shapeNames().indexOf(m_shape));
    const DShape& shape = c_shapes[index];
    const QString fields = shape.fields > 0 ? line.section(QLatin1Char(','), 0, shape.fields - 1) : line;
    Report report;
    report.payload = c_eventLogPrefix + (shape.ownLine ? c_lineEnd : QByteArray()) + fields.toUtf8() + c_lineEnd;
    report.line = fields;
    report.shape = QString::fromLatin1(shape.name);
    report.published = shape.published;
    return report;
}
