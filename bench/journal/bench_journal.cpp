// The result journal: commits per second with synchronous=FULL; the time from a report
// frame's arrival on the serial port to its commit, through the real driver, plug-in and
// station service against the simulator; `hytorc results` over a journal of a million rows;
// and the journal's bytes per result. Files go in the build folder (a real disk, real fsyncs).
#include "d_abstract_plugin.h"
#include "d_result_journal.h"
#include "d_simulated_tool.h"
#include "d_test_workstation.h"
#include "d_station_service.h"
#include "d_workstation.h"

#include <benchmark/benchmark.h>

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTest>

#include <algorithm>

namespace {

const QVariantMap c_record{{"date", "2026-11-23"}, {"time", "08:00:00"}, {"duration", 1848}, {"jobId", "1"},
                           {"profileName", "P1"}, {"mode", "TQ"}, {"snugTorqueAngle", "12.000"},
                           {"torqueUnit", "NM"}, {"direction", "CW"}, {"status", "PASSED"},
                           {"convertedTorque", 12098}, {"angleUnit", "DEG"}, {"progId", 1}, {"eventCountNo", 42}};

QString benchFile(const QString& name)
{
    return qEnvironmentVariable("HYTORC_BUILD_DIR") + QStringLiteral("/bench-") + name;
}

void removeJournal(const QString& path)
{
    for (const char* suffix : {"", "-wal", "-shm"})
        QFile::remove(path + QLatin1String(suffix));
}

// Median, p99 and max of `ms` as counters.
void latencyCounters(benchmark::State& state, QVector<double> ms, const char* prefix)
{
    std::sort(ms.begin(), ms.end());
    state.counters[std::string(prefix) + "_median_ms"] = ms.at(ms.size() / 2);
    state.counters[std::string(prefix) + "_p99_ms"] = ms.at(std::min(ms.size() - 1, ms.size() * 99 / 100));
    state.counters[std::string(prefix) + "_max_ms"] = ms.last();
}

void BM_CommitRate(benchmark::State& state)
{
    const QString path = benchFile("commits.db");
    for (auto _ : state) {
        removeJournal(path);
        DResultJournal journal;
        QString error;
        if (!journal.open(path, DResultJournal::CeWriter, &error)) {
            state.SkipWithError(qPrintable(error));
            return;
        }
        QVector<double> commitMs;
        QElapsedTimer total;
        total.start();
        for (int i = 0; i < state.range(0); ++i) {
            QElapsedTimer one;
            one.start();
            journal.append(c_record, QStringLiteral("ST20"), QStringLiteral("HYT24A0137"), &error);
            commitMs << one.nsecsElapsed() / 1e6;
        }
        state.counters["results_per_s"] = state.range(0) / (total.nsecsElapsed() / 1e9);
        latencyCounters(state, commitMs, "commit");
    }
    removeJournal(path);
}

// When the serial driver read a report's first bytes, and the bytes that completed it
// (the last read before the commit; the tool sends a report in several paced frames).
class DArrivalClock : public QObject
{
    Q_OBJECT
public:
    DArrivalClock() { m_clock.start(); }
    void reset() { m_firstNs = -1; }
    double sinceFirstMs() const { return (m_clock.nsecsElapsed() - m_firstNs) / 1e6; }
    double sinceLastMs() const { return (m_clock.nsecsElapsed() - m_lastNs) / 1e6; }
    bool arrived() const { return m_firstNs >= 0; }

public slots:
    void onBytesRead()
    {
        m_lastNs = m_clock.nsecsElapsed();
        if (m_firstNs < 0)
            m_firstNs = m_lastNs;
    }

private:
    QElapsedTimer m_clock;
    qint64 m_firstNs = -1;
    qint64 m_lastNs = -1;
};

// From the first bytes of a report read off the port to the commit of its result.
void BM_ReportToCommit(benchmark::State& state)
{
    const QString path = benchFile("reports.db");
    removeJournal(path);
    DSimulatedTool tool;
    DResultJournal journal;
    DWorkstation workstation;
    QString error;
    if (!tool.start({}) || !journal.open(path, DResultJournal::CeWriter, &error)
        || !workstation.setUp(qEnvironmentVariable("HYTORC_BUILD_DIR") + QStringLiteral("/plugins"), &error)) {
        state.SkipWithError("the simulator, the journal or the plug-ins could not start");
        return;
    }
    DStationService service(&workstation, &journal, QStringLiteral("ST20"));
    service.start(tool.linkPath(), QString());
    if (!QTest::qWaitFor([&] { return service.isToolConnected(); }, 20000)) {
        state.SkipWithError("the service did not connect");
        return;
    }
    DArrivalClock arrival;
    QObject::connect(workstation.driver(), SIGNAL(sigBytesRead(QByteArray)), &arrival, SLOT(onBytesRead()));
    QVector<double> latencyMs;
    QVector<double> firstByteMs;
    QObject::connect(&journal, &DResultJournal::sigCommitted, &arrival, [&] {
        if (!arrival.arrived())
            return;
        latencyMs << arrival.sinceLastMs();
        firstByteMs << arrival.sinceFirstMs();
    });
    for (auto _ : state) {
        for (int i = 0; i < state.range(0); ++i) {
            arrival.reset();
            const int before = latencyMs.size();
            tool.say("event");
            if (!DTestWorkstation::waitFor([&] { return latencyMs.size() > before; }, 5000)) {
                state.SkipWithError("a report was not journaled");
                return;
            }
        }
    }
    latencyCounters(state, latencyMs, "frame_to_commit");
    latencyCounters(state, firstByteMs, "first_byte_to_commit");
    service.stop([] {});
    removeJournal(path);
}

// A million rows written the fast way (one transaction, no fsync): the export is what is measured.
// Four results a part: identifier VIN00000001 for rows 4 to 7, and so on.
bool fillJournal(const QString& path, int rows, QString* error)
{
    {
        DResultJournal journal;
        if (!journal.open(path, DResultJournal::CeWriter, error))
            return false;
        if (journal.lastId() >= rows)
            return true;
    }
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("fill"));
    db.setDatabaseName(path);
    db.open();
    QSqlQuery(QStringLiteral("PRAGMA synchronous=OFF"), db);
    if (!db.transaction()) {
        *error = QStringLiteral("no transaction: ") + db.lastError().text();
        return false;
    }
    QSqlQuery insert(db);
    insert.prepare(QStringLiteral("INSERT INTO results (receivedAt, station, toolSerial, date, time, duration, jobId,"
                                  " profileName, mode, snugTorqueAngle, torqueUnit, direction, status, convertedTorque,"
                                  " angleUnit, progId, eventCountNo, identifier) VALUES (?,'ST20','HYT24A0137','2026-11-23',"
                                  "'08:00:00',1848,?,'P1','TQ','12.000','NM','CW','PASSED',12098,'DEG',1,?,?)"));
    const qint64 start = QDateTime::currentMSecsSinceEpoch();
    for (int i = 1; i <= rows; ++i) {
        insert.addBindValue(start + i * 3000);
        insert.addBindValue(QString::number(i));
        insert.addBindValue(i);
        insert.addBindValue(QStringLiteral("VIN%1").arg(i / 4, 8, 10, QLatin1Char('0')));
        insert.exec();
    }
    const bool ok = db.commit();
    QSqlQuery(QStringLiteral("PRAGMA wal_checkpoint(TRUNCATE)"), db);
    insert.clear();
    db.close();
    db = QSqlDatabase();
    QSqlDatabase::removeDatabase(QStringLiteral("fill"));
    return ok;
}

int journalRows()
{
    return qEnvironmentVariableIntValue("HYTORC_BENCH_JOURNAL_ROWS") > 0
        ? qEnvironmentVariableIntValue("HYTORC_BENCH_JOURNAL_ROWS") : 1000000;
}

// `hytorc results OPTIONS` over the journal of a million rows, timed as a user runs it.
void timeExport(benchmark::State& state, const QStringList& options)
{
    const QString path = benchFile("million-2.db");
    QString error;
    if (!fillJournal(path, journalRows(), &error)) {
        state.SkipWithError(qPrintable(error));
        return;
    }
    for (auto _ : state) {
        QProcess results;
        results.setStandardOutputFile(QProcess::nullDevice());
        QElapsedTimer clock;
        clock.start();
        results.start(qEnvironmentVariable("HYTORC_BUILD_DIR") + QStringLiteral("/bin/hytorc"),
                      QStringList{"results", "--journal", path} + options);
        results.waitForFinished(120000);
        state.SetIterationTime(clock.nsecsElapsed() / 1e9);
        state.counters["export_s"] = clock.nsecsElapsed() / 1e9;
    }
    state.counters["bytes_per_result"] = double(QFileInfo(path).size()) / journalRows();
}

// `hytorc results --since` for the last 100 000 of a million rows.
void BM_ExportSince(benchmark::State& state)
{
    timeExport(state, {"--since", QString::number(journalRows() - state.range(0))});
    state.counters["rows"] = state.range(0);
}

// `hytorc results --identifier`: every bolt of one vehicle among a million results.
void BM_ExportIdentifier(benchmark::State& state)
{
    timeExport(state, {"--identifier", QStringLiteral("VIN%1").arg(journalRows() / 8, 8, 10, QLatin1Char('0'))});
}

} // namespace

BENCHMARK(BM_CommitRate)->Arg(2000)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_ReportToCommit)->Arg(300)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_ExportSince)->Arg(100000)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(3);
BENCHMARK(BM_ExportIdentifier)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(3);

#include "bench_journal.moc"
