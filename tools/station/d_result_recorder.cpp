#include "d_result_recorder.h"

#include "d_result_record.h"

#include <QFileInfo>

bool DResultRecorder::open(const QString& path, QString* error)
{
    if (path.isEmpty())
        return true;
    m_csv = path.endsWith(QLatin1String(".csv"), Qt::CaseInsensitive);
    m_file.setFileName(path);
    // A device (/dev/stdout, /dev/full) has no end to append at.
    const QFileInfo target(path);
    if (!m_file.open(target.exists() && !target.isFile() ? QIODevice::WriteOnly : QIODevice::WriteOnly | QIODevice::Append)) {
        *error = QStringLiteral("cannot write %1: %2; check that the folder %3 exists and that this user may write in it")
                     .arg(path, m_file.errorString(), QFileInfo(path).absolutePath());
        return false;
    }
    bool ok = true;
    // Appending to a CSV file that already has its header row.
    if (m_csv && m_file.size() == 0)
        writeLine(DResultRecord::csvHeader(DResultRecord::eventKeys()), error, &ok);
    return ok;
}

bool DResultRecorder::record(const QVariantMap& result, QString* error)
{
    ++m_count;
    ++m_statuses[result.value(QStringLiteral("status")).toString()];
    bool ok = true;
    if (!m_file.isOpen())
        return ok;
    const QStringList& keys = DResultRecord::eventKeys();
    writeLine(m_csv ? DResultRecord::csvLine(result, keys) : DResultRecord::jsonLine(result, keys), error, &ok);
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
        *error = QStringLiteral("cannot write %1: %2; check the room left on its disk")
                     .arg(m_file.fileName(), m_file.errorString());
        *ok = false;
    }
}
