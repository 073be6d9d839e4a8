#include "d_result_journal.h"

#include "d_result_record.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlRecord>
#include <QStandardPaths>
#include <QUuid>

#include <sqlite3.h>

#include <cerrno>
#include <limits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

const QString c_driver = QStringLiteral("QSQLITE");
// Below this, a journal would refuse its first results: the start is refused instead.
constexpr quint64 c_minFreeBytes = 64 * 1024;

// Each step takes the schema from its index to the next version; a new file runs them all.
const QStringList c_migrations{
    QStringLiteral("CREATE TABLE results ("
                   " id INTEGER PRIMARY KEY AUTOINCREMENT, receivedAt INTEGER NOT NULL,"
                   " station TEXT NOT NULL, toolSerial TEXT NOT NULL,"
                   " date TEXT, time TEXT, duration INTEGER, jobId TEXT, profileName TEXT, mode TEXT,"
                   " snugTorqueAngle TEXT, torqueUnit TEXT, direction TEXT, status TEXT,"
                   " convertedTorque INTEGER, angleUnit TEXT, progId INTEGER, eventCountNo INTEGER);"
                   "CREATE INDEX results_receivedAt ON results(receivedAt);"
                   "CREATE TABLE tool_changes (at INTEGER NOT NULL, station TEXT NOT NULL,"
                   " previousSerial TEXT NOT NULL, serial TEXT NOT NULL);"
                   "CREATE TABLE state (key TEXT PRIMARY KEY, value TEXT NOT NULL);"),
    // Version 2: what happened at the station beside its results (a lock and why, results lost), and
    // the part behind each result: its identifiers, its batch, the program's limits then and the
    // statuses judged by them. Rows of version 1 keep NULL there: nothing was known.
    QStringLiteral("CREATE TABLE events (id INTEGER PRIMARY KEY AUTOINCREMENT, at INTEGER NOT NULL,"
                   " station TEXT NOT NULL, kind TEXT NOT NULL, text TEXT NOT NULL);"
                   "CREATE INDEX events_at ON events(at);"
                   "ALTER TABLE results ADD COLUMN identifier TEXT;"
                   "ALTER TABLE results ADD COLUMN identifier2 TEXT;"
                   "ALTER TABLE results ADD COLUMN identifier3 TEXT;"
                   "ALTER TABLE results ADD COLUMN identifier4 TEXT;"
                   "ALTER TABLE results ADD COLUMN batchSize INTEGER;"
                   "ALTER TABLE results ADD COLUMN batchCounter INTEGER;"
                   "ALTER TABLE results ADD COLUMN batchStatus INTEGER;"
                   "ALTER TABLE results ADD COLUMN torqueMin REAL;"
                   "ALTER TABLE results ADD COLUMN torqueMax REAL;"
                   "ALTER TABLE results ADD COLUMN angleMin REAL;"
                   "ALTER TABLE results ADD COLUMN angleMax REAL;"
                   "ALTER TABLE results ADD COLUMN torqueStatus TEXT;"
                   "ALTER TABLE results ADD COLUMN angleStatus TEXT;"),
};

// 2026-11-23T08:00:00.123Z, written directly: QDateTime's formatting would take most of an export's time.
QString isoUtc(qint64 ms)
{
    const time_t seconds = time_t(ms / 1000);
    tm utc{};
    gmtime_r(&seconds, &utc);
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900, utc.tm_mon + 1,
                  utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, int(ms % 1000));
    return QString::fromLatin1(text);
}

} // namespace

DResultJournal::DResultJournal(QObject* parent)
    : QObject(parent)
    , m_connection(QStringLiteral("journal-") + QUuid::createUuid().toString(QUuid::WithoutBraces))
{
}

DResultJournal::~DResultJournal() { close(); }

QString DResultJournal::defaultPath()
{
    if (::geteuid() == 0)
        return QStringLiteral("/var/lib/hytorc/results.db");
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/hytorc/results.db");
}

int DResultJournal::schemaVersion() { return c_migrations.size(); }

bool DResultJournal::open(const QString& path, EnMode mode, QString* error)
{
    m_path = path;
    const QFileInfo file(path);
    if (mode == CeReader && !file.exists()) {
        *error = QStringLiteral("journal %1: no such file").arg(path);
        return false;
    }
    if (mode == CeWriter && !QDir().mkpath(file.absolutePath())) {
        *error = QStringLiteral("journal %1: cannot create its folder").arg(path);
        return false;
    }
    // Everything that refuses a file comes before the first write to it.
    if (mode == CeWriter && !checkWritable(error))
        return false;
    if (file.exists() && file.size() > 0 && !checkKind(error))
        return false;
    if (mode == CeWriter && !m_lock.take(path, error))
        return false;
    QSqlDatabase db = QSqlDatabase::addDatabase(c_driver, m_connection);
    db.setDatabaseName(path);
    // A reader that may not write the folder still reads; WAL keeps it from blocking the writer.
    const bool readOnly = mode == CeReader && !QFileInfo(file.absolutePath()).isWritable();
    db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=5000") +
                         (readOnly ? QStringLiteral(";QSQLITE_OPEN_READONLY") : QString()));
    if (!db.open()) {
        *error = QStringLiteral("journal %1: %2").arg(path, db.lastError().text());
        return false;
    }
    if (mode == CeReader)
        return exec(QStringLiteral("SELECT count(*) FROM sqlite_master"), error);
    if (!check(error) || !probe(error) || !exec(QStringLiteral("PRAGMA journal_mode=WAL"), error)
        || !exec(QStringLiteral("PRAGMA synchronous=FULL"), error) || !migrate(error))
        return false;
    m_insert = new QSqlQuery(db);
    const QStringList columns = DResultRecord::journalKeys().mid(1);
    const QString marks = QStringLiteral("?,").repeated(columns.size()).chopped(1);
    m_insert->prepare(QStringLiteral("INSERT INTO results (%1) VALUES (%2)").arg(columns.join(','), marks));
    return true;
}

void DResultJournal::close()
{
    delete m_insert;
    m_insert = nullptr;
    if (!QSqlDatabase::contains(m_connection))
        return;
    QSqlDatabase::database(m_connection, false).close();
    QSqlDatabase::removeDatabase(m_connection);
    m_lock.release();
}

qint64 DResultJournal::append(const QVariantMap& record, const QString& station, const QString& toolSerial,
                              QString* error, qint64 receivedAtMs)
{
    m_insert->addBindValue(receivedAtMs > 0 ? receivedAtMs : QDateTime::currentMSecsSinceEpoch());
    m_insert->addBindValue(station);
    m_insert->addBindValue(toolSerial);
    for (const QString& key : DResultRecord::eventKeys()) {
        const QVariant value = record.value(key);
        m_insert->addBindValue(DResultRecord::isNumeric(key) ? QVariant(value.toLongLong()) : QVariant(value.toString()));
    }
    // What the station knew of the part: a key it did not stamp is NULL, "unknown" to every reader.
    for (const QString& key : DResultRecord::partKeys()) {
        const QVariant value = record.value(key);
        m_insert->addBindValue(value.isValid() && !value.toString().isEmpty() ? value : QVariant(QVariant::String));
    }
    if (!m_insert->exec()) {
        *error = fail(QStringLiteral("cannot commit a result"), *m_insert);
        return 0;
    }
    const qint64 id = m_insert->lastInsertId().toLongLong();
    emit sigCommitted(id);
    return id;
}

bool DResultJournal::recordToolChange(const QString& station, const QString& previousSerial, const QString& serial,
                                      QString* error)
{
    QSqlQuery query(QSqlDatabase::database(m_connection, false));
    query.prepare(QStringLiteral("INSERT INTO tool_changes VALUES (?, ?, ?, ?)"));
    for (const QVariant& value : {QVariant(QDateTime::currentMSecsSinceEpoch()), QVariant(station),
                                  QVariant(previousSerial), QVariant(serial)})
        query.addBindValue(value);
    if (query.exec())
        return true;
    *error = fail(QStringLiteral("cannot record the tool change"), query);
    return false;
}

bool DResultJournal::recordEvent(const QString& station, const QString& kind, const QString& text, QString* error)
{
    QSqlQuery query(QSqlDatabase::database(m_connection, false));
    query.prepare(QStringLiteral("INSERT INTO events (at, station, kind, text) VALUES (?, ?, ?, ?)"));
    for (const QVariant& value : {QVariant(QDateTime::currentMSecsSinceEpoch()), QVariant(station), QVariant(kind),
                                  QVariant(text)})
        query.addBindValue(value);
    if (!query.exec()) {
        *error = fail(QStringLiteral("cannot record the event \"%1\"").arg(text), query);
        return false;
    }
    emit sigEventRecorded(kind, text);
    return true;
}

qint64 DResultJournal::lastId() const
{
    QSqlQuery query(QStringLiteral("SELECT max(id) FROM results"), QSqlDatabase::database(m_connection, false));
    return query.next() ? query.value(0).toLongLong() : 0;
}

QVariantMap DResultJournal::row(qint64 id) const
{
    QVariantMap found;
    QString error;
    forEach({id - 1, 0, 0, 1}, [&](const QVariantMap& row) {
        found = row.value(QStringLiteral("id")).toLongLong() == id ? row : QVariantMap();
        return false;
    }, &error);
    return found;
}

bool DResultJournal::forEach(const DQuery& query, const std::function<bool(const QVariantMap&)>& each,
                             QString* error) const
{
    const QStringList& keys = DResultRecord::journalKeys();
    return forEachValues(query, [&](const QVariantList& values) {
        QVariantMap row;
        for (int i = 0; i < keys.size(); ++i) {
            if (!values.at(i).isNull())  // no value: no key
                row.insert(keys.at(i), values.at(i));
        }
        return each(row);
    }, error);
}

bool DResultJournal::forEachValues(const DQuery& query, const std::function<bool(const QVariantList&)>& each,
                                   QString* error) const
{
    return forEachValues(query, DResultRecord::journalKeys(), each, error);
}

bool DResultJournal::forEachValues(const DQuery& query, const QStringList& columns,
                                   const std::function<bool(const QVariantList&)>& each, QString* error) const
{
    QVariantList binds;
    const QString sql = select(query, columns, &binds);
    QSqlQuery rows(QSqlDatabase::database(m_connection, false));
    rows.setForwardOnly(true);
    rows.prepare(sql);
    for (const QVariant& value : binds)
        rows.addBindValue(value);
    if (!rows.exec()) {
        *error = fail(QStringLiteral("cannot read"), rows);
        return false;
    }
    const int receivedAt = columns.indexOf(QStringLiteral("receivedAt"));
    QVariantList values;
    while (rows.next()) {
        valuesOf(rows, columns.size(), receivedAt, &values);
        if (!each(values))
            break;
    }
    return true;
}

QString DResultJournal::select(const DQuery& query, const QStringList& columns, QVariantList* binds)
{
    *binds = {query.sinceId};
    QString sql = QStringLiteral("SELECT %1 FROM results WHERE id > ?").arg(columns.join(','));
    const auto bound = [&](const QString& condition, qint64 value) {
        if (value > 0)
            sql += condition.arg(value);
    };
    bound(QStringLiteral(" AND receivedAt >= %1"), query.fromMs);
    bound(QStringLiteral(" AND receivedAt <= %1"), query.toMs);
    bound(QStringLiteral(" AND id < %1"), query.beforeId);
    bound(QStringLiteral(" AND progId = %1"), query.progId);
    if (!query.status.isEmpty()) {
        sql += QStringLiteral(" AND status = ? COLLATE NOCASE");
        *binds << query.status;
    }
    if (!query.identifier.isEmpty()) {
        QStringList parts;
        for (const QString& key : DResultRecord::identifierKeys()) {
            parts << key + QStringLiteral(" = ?");
            *binds << query.identifier;
        }
        sql += QStringLiteral(" AND (%1)").arg(parts.isEmpty() ? QStringLiteral("0") : parts.join(QStringLiteral(" OR ")));
    }
    sql += query.newestFirst ? QStringLiteral(" ORDER BY id DESC") : QStringLiteral(" ORDER BY id");
    bound(QStringLiteral(" LIMIT %1"), query.limit);
    return sql;
}

bool DResultJournal::forEachRaw(const DQuery& query, const QStringList& columns,
                                const std::function<bool(const DRawRow&)>& each, QString* error) const
{
    QVariantList binds;
    const QByteArray sql = select(query, columns, &binds).toUtf8();
    const QVariant handle = QSqlDatabase::database(m_connection, false).driver()->handle();
    sqlite3* db = handle.isValid() && qstrcmp(handle.typeName(), "sqlite3*") == 0 ? *static_cast<sqlite3* const*>(handle.data()) : nullptr;
    sqlite3_stmt* statement = nullptr;
    if (!db || sqlite3_prepare_v2(db, sql.constData(), int(sql.size()), &statement, nullptr) != SQLITE_OK) {
        *error = QStringLiteral("journal %1: cannot read: %2").arg(m_path, db ? QString::fromUtf8(sqlite3_errmsg(db)) : QStringLiteral("not open"));
        return false;
    }
    for (int i = 0; i < binds.size(); ++i) {
        if (binds.at(i).userType() == QMetaType::QString)
            sqlite3_bind_text(statement, i + 1, binds.at(i).toString().toUtf8().constData(), -1, SQLITE_TRANSIENT);
        else
            sqlite3_bind_int64(statement, i + 1, binds.at(i).toLongLong());
    }
    DRawRow row;
    row.m_statement = statement;
    int step = SQLITE_ROW;
    while ((step = sqlite3_step(statement)) == SQLITE_ROW && each(row)) {
    }
    sqlite3_finalize(statement);
    if (step == SQLITE_ROW || step == SQLITE_DONE)
        return true;
    *error = QStringLiteral("journal %1: cannot read: %2").arg(m_path, QString::fromUtf8(sqlite3_errstr(step)));
    return false;
}

qint64 DResultJournal::DRawRow::integer(int column) const
{
    return sqlite3_column_int64(static_cast<sqlite3_stmt*>(m_statement), column);
}

double DResultJournal::DRawRow::number(int column) const
{
    auto* statement = static_cast<sqlite3_stmt*>(m_statement);
    const int type = sqlite3_column_type(statement, column);
    const bool none = type == SQLITE_NULL || (type == SQLITE_TEXT && sqlite3_column_bytes(statement, column) == 0);
    return none ? std::numeric_limits<double>::quiet_NaN() : sqlite3_column_double(statement, column);
}

QLatin1String DResultJournal::DRawRow::text(int column) const
{
    auto* statement = static_cast<sqlite3_stmt*>(m_statement);
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
    return QLatin1String(text, text ? sqlite3_column_bytes(statement, column) : 0);
}

QString DResultJournal::state(const QString& key) const
{
    QSqlQuery query(QSqlDatabase::database(m_connection, false));
    query.prepare(QStringLiteral("SELECT value FROM state WHERE key = ?"));
    query.addBindValue(key);
    return query.exec() && query.next() ? query.value(0).toString() : QString();
}

bool DResultJournal::setState(const QString& key, const QString& value, QString* error)
{
    QSqlQuery query(QSqlDatabase::database(m_connection, false));
    query.prepare(QStringLiteral("INSERT OR REPLACE INTO state VALUES (?, ?)"));
    query.addBindValue(key);
    query.addBindValue(value);
    if (query.exec())
        return true;
    *error = fail(QStringLiteral("cannot store %1").arg(key), query);
    return false;
}

bool DResultJournal::exec(const QString& statement, QString* error) const
{
    QSqlQuery query(QSqlDatabase::database(m_connection, false));
    if (query.exec(statement))
        return true;
    *error = fail(QStringLiteral("cannot run \"%1\"").arg(statement.left(40)), query);
    return false;
}

// Steps a file of an older schema forward, each step in one transaction (a newer one was refused by checkKind).
bool DResultJournal::migrate(QString* error)
{
    QSqlDatabase db = QSqlDatabase::database(m_connection, false);
    QSqlQuery version(QStringLiteral("PRAGMA user_version"), db);
    const int current = version.next() ? version.value(0).toInt() : 0;
    for (int step = current; step < schemaVersion(); ++step) {
        db.transaction();
        for (const QString& statement : c_migrations.at(step).split(';', Qt::SkipEmptyParts)) {
            if (!exec(statement, error)) {
                db.rollback();
                return false;
            }
        }
        if (!exec(QStringLiteral("PRAGMA user_version=%1").arg(step + 1), error) || !db.commit()) {
            db.rollback();
            return false;
        }
    }
    return true;
}

// Read-only, so that a file refused here is left byte for byte as it was (no WAL switch, no -wal beside it).
bool DResultJournal::checkKind(QString* error) const
{
    const QString name = m_connection + QStringLiteral("-kind");
    QString failure;
    int version = 0;
    int tables = 0;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(c_driver, name);
        db.setDatabaseName(m_path);
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY;QSQLITE_BUSY_TIMEOUT=5000"));
        QSqlQuery query(db);
        if (!db.open())
            failure = db.lastError().text();
        else if (query.exec(QStringLiteral("SELECT (SELECT user_version FROM pragma_user_version),"
                                           " (SELECT count(*) FROM sqlite_master)")) && query.next())
            version = query.value(0).toInt(), tables = query.value(1).toInt();
        else
            failure = query.lastError().text();
    }
    QSqlDatabase::removeDatabase(name);
    if (!failure.isEmpty())
        failure = QStringLiteral("journal %1: %2").arg(m_path, failure);
    else if (version > schemaVersion())
        failure = QStringLiteral("journal %1: schema version %2 is newer than this program's %3; use a newer %4 "
                                 "(the file is left as it is)")
                     .arg(m_path).arg(version).arg(schemaVersion()).arg(QCoreApplication::applicationName());
    else if (version == 0 && tables > 0)
        failure = QStringLiteral("journal %1 is another program's SQLite file, not a result journal: name another "
                                 "one (--journal); the file is left as it is").arg(m_path);
    *error = failure;
    return failure.isEmpty();
}

// A journal that cannot take a result is refused at start, not found out at the first tightening.
bool DResultJournal::checkWritable(QString* error) const
{
    const QFileInfo file(m_path);
    const QByteArray folder = QFile::encodeName(file.absolutePath());
    const auto writable = [](const QByteArray& path) { return ::faccessat(AT_FDCWD, path.constData(), W_OK, AT_EACCESS) == 0; };
    struct statvfs space = {};
    QString problem;
    if (!writable(folder))
        problem = QStringLiteral("its folder %1 is read-only (%2): check the folder's owner, mode and mount")
                      .arg(file.absolutePath(), QString::fromLocal8Bit(std::strerror(errno)));
    else if (file.exists() && !writable(QFile::encodeName(m_path)))
        problem = QStringLiteral("the file is read-only (%1): check its owner and mode (ls -l %2)")
                      .arg(QString::fromLocal8Bit(std::strerror(errno)), m_path);
    else if (::statvfs(folder.constData(), &space) == 0 && quint64(space.f_bavail) * space.f_frsize < c_minFreeBytes)
        problem = QStringLiteral("no space left on its file system (%1 KiB free): free some space there")
                      .arg(quint64(space.f_bavail) * space.f_frsize / 1024);
    if (problem.isEmpty())
        return true;
    *error = QStringLiteral("journal %1: %2").arg(m_path, problem);
    return false;
}

// A write in a transaction that is rolled back: the file takes writes, and nothing in it changed.
bool DResultJournal::probe(QString* error)
{
    QSqlQuery query(QSqlDatabase::database(m_connection, false));
    const bool written = query.exec(QStringLiteral("BEGIN IMMEDIATE"))
                         && query.exec(QStringLiteral("CREATE TABLE hytorcd_probe (x)"));
    const QString failure = query.lastError().text();
    query.exec(QStringLiteral("ROLLBACK"));
    if (written)
        return true;
    *error = QStringLiteral("journal %1 cannot be written (%2): check its file, folder and file system").arg(m_path, failure);
    return false;
}

bool DResultJournal::check(QString* error) const
{
    QSqlQuery query(QSqlDatabase::database(m_connection, false));
    if (!query.exec(QStringLiteral("PRAGMA quick_check"))) {
        *error = fail(QStringLiteral("cannot be read"), query);
        return false;
    }
    if (query.next() && query.value(0).toString() == QLatin1String("ok"))
        return true;
    *error = QStringLiteral("journal %1 is damaged (%2); it is left as it is")
                 .arg(m_path, query.value(0).toString());
    return false;
}

QString DResultJournal::fail(const QString& what, const QSqlQuery& query) const
{
    return QStringLiteral("journal %1: %2: %3").arg(m_path, what, query.lastError().text());
}

void DResultJournal::valuesOf(const QSqlQuery& query, int count, int receivedAt, QVariantList* values)
{
    values->clear();
    values->reserve(count);
    for (int i = 0; i < count; ++i)
        values->append(query.value(i));
    if (receivedAt >= 0)
        (*values)[receivedAt] = isoUtc(values->at(receivedAt).toLongLong());
}
