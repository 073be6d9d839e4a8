#include "d_result_recorder.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {

// The fields of a tightening result, in the order of its report.
const QStringList c_csvColumns{"date",      "time",       "duration",        "jobId",     "profileName",
                               "mode",      "snugTorqueAngle", "torqueUnit", "direction", "status",
                               "convertedTorque", "angleUnit", "progId",    "eventCountNo"};

QString csvField(const QString& text)
{
    if (!text.contains(QLatin1Char(',')) && !text.contains(QLatin1Char('"')) && !text.contains(QLatin1Char('\n')))
        return text;
    return QLatin1Char('"') + QString(text).replace(QLatin1String("\""), QLatin1String("\"\"")) + QLatin1Char('"');
}

} // namespace

bool DResultRecorder::open(const QString& path, QString* error)
{
    if (path.isEmpty())
        return true;
    m_csv = path.endsWith(QLatin1String(".csv"), Qt::CaseInsensitive);
    m_file.setFileName(path);
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Append)) {
        *error = QStringLiteral("cannot write %1: %2").arg(path, m_file.errorString());
        return false;
    }
    bool ok = true;
    // Appending to a CSV file that already has its header row.
    if (m_csv && m_file.size() == 0)
        writeLine(csvLine(c_csvColumns), error, &ok);
    return ok;
}

bool DResultRecorder::record(const QVariantMap& result, QString* error)
{
    ++m_count;
    ++m_statuses[result.value(QStringLiteral("status")).toString()];
    bool ok = true;
    if (!m_file.isOpen())
        return ok;
    if (m_csv) {
        QStringList fields;
        for (const QString& column : c_csvColumns)
            fields << result.value(column).toString();
        writeLine(csvLine(fields), error, &ok);
    } else {
        writeLine(QJsonDocument(QJsonObject::fromVariantMap(result)).toJson(QJsonDocument::Compact), error, &ok);
    }
    return ok;
}

QString DResultRecorder::summary() const
{
    QStringList counts;
    for (auto it = m_statuses.cbegin(); it != m_statuses.cend(); ++it)
        counts << QStringLiteral("%1 %2").arg(it.key().isEmpty() ? QStringLiteral("(no status)") : it.key()).arg(it.value());
    const QString text = QStringLiteral("%1 result%2").arg(m_count).arg(m_count == 1 ? "" : "s");
    return counts.isEmpty() ? text : QStringLiteral("%1 (%2)").arg(text, counts.join(QStringLiteral(", ")));
}

void DResultRecorder::writeLine(const QByteArray& line, QString* error, bool* ok)
{
    if (m_file.write(line + '\n') < 0 || !m_file.flush()) {
        *error = QStringLiteral("cannot write %1: %2").arg(m_file.fileName(), m_file.errorString());
        *ok = false;
    }
}

QByteArray DResultRecorder::csvLine(const QStringList& fields) const
{
    QStringList quoted;
    for (const QString& field : fields)
        quoted << csvField(field);
    return quoted.join(QLatin1Char(',')).toUtf8();
}
