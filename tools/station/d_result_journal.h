#ifndef D_RESULT_JOURNAL_H
#define D_RESULT_JOURNAL_H

#include "d_journal_lock.h"

#include <QObject>
#include <QSqlQuery>
#include <QString>
#include <QVariantMap>

#include <functional>

// The station's durable record of every tightening result: one SQLite file (WAL,
// synchronous=FULL), one transaction per result, committed before anyone hears of it.
// Everything that passes results on (the export, Open Protocol, MQTT) reads them here by
// id, after sigCommitted. Ids are SQLite's AUTOINCREMENT: increasing, never reused.
class DResultJournal : public QObject
{
    Q_OBJECT
public:
    enum EnMode { CeWriter, CeReader };
    // Rows by id and by the time they were received (UTC ms since the epoch); 0 or empty = no bound.
    struct DQuery {
        qint64 sinceId = 0;  // rows with an id above this one
        qint64 fromMs = 0;
        qint64 toMs = 0;
        qint64 limit = 0;
        qint64 beforeId = 0;     // rows with an id below this one
        bool newestFirst = false;
        int progId = 0;
        QString status;          // the tool's word, case ignored
        QString identifier;      // any identifier part, where the journal keeps them
    };

    // A row straight from SQLite, valid only inside the call: a statistic over a million rows reads
    // numbers and short texts without Qt's copy of every value.
    class DRawRow
    {
    public:
        qint64 integer(int column) const;
        double number(int column) const;  // NaN for NULL or an empty text
        QLatin1String text(int column) const;

    private:
        friend class DResultJournal;
        void* m_statement = nullptr;
    };

    explicit DResultJournal(QObject* parent = nullptr);
    ~DResultJournal() override;

    // The writer creates the file (and its folder) or migrates it to this schema, and checks
    // it; the reader only reads a file that exists. False with one line naming the file. A file
    // of a newer schema or of another program is refused by both before anything is written;
    // the writer also proves it writable and takes JOURNAL.lock for as long as it is open.
    bool open(const QString& path, EnMode mode, QString* error);
    void close();
    QString path() const { return m_path; }

    // Commits one result (the listener's record) and emits sigCommitted; its id, or 0 with a reason.
    // `receivedAtMs`: when the station received it (0: now).
    qint64 append(const QVariantMap& record, const QString& station, const QString& toolSerial, QString* error,
                  qint64 receivedAtMs = 0);
    // A tool of another serial on the station's port.
    bool recordToolChange(const QString& station, const QString& previousSerial, const QString& serial,
                          QString* error);

    // One row of the events table: what happened at the station beside its results, with a kind
    // that consumers match ("lock", "unlock", "results-lost", ...) and a sentence for people.
    bool recordEvent(const QString& station, const QString& kind, const QString& text, QString* error);

    qint64 lastId() const;
    // The row with the keys of DResultRecord::journalKeys() ("receivedAt" as ISO 8601 UTC), or empty.
    QVariantMap row(qint64 id) const;
    // Calls `each` for the rows of `query` in id order until it returns false; false on a read error.
    bool forEach(const DQuery& query, const std::function<bool(const QVariantMap&)>& each, QString* error) const;
    // The same with a row's values in the order of DResultRecord::journalKeys(): an export's fast road.
    bool forEachValues(const DQuery& query, const std::function<bool(const QVariantList&)>& each,
                       QString* error) const;
    // The same with the values of `columns` (journal keys) only: a reader of a few columns over many rows.
    bool forEachValues(const DQuery& query, const QStringList& columns,
                       const std::function<bool(const QVariantList&)>& each, QString* error) const;

    // The same as raw rows.
    bool forEachRaw(const DQuery& query, const QStringList& columns, const std::function<bool(const DRawRow&)>& each,
                    QString* error) const;

    // Small values of the station's parts kept with the results (as the last id a broker acknowledged).
    QString state(const QString& key) const;
    bool setState(const QString& key, const QString& value, QString* error);

    // /var/lib/hytorc/results.db for root (the service), $XDG_DATA_HOME/hytorc/results.db otherwise.
    static QString defaultPath();
    // The schema this program writes (PRAGMA user_version).
    static int schemaVersion();

signals:
    void sigCommitted(qint64 id);
    // An event row was committed.
    void sigEventRecorded(const QString& kind, const QString& text);

private:
    bool exec(const QString& statement, QString* error) const;
    // The SELECT of `columns` for `query`, and the values its marks take.
    static QString select(const DQuery& query, const QStringList& columns, QVariantList* binds);
    bool migrate(QString* error);
    bool check(QString* error) const;
    bool checkKind(QString* error) const;
    bool checkWritable(QString* error) const;
    bool probe(QString* error);
    QString fail(const QString& what, const QSqlQuery& query) const;
    static void valuesOf(const QSqlQuery& query, int count, int receivedAt, QVariantList* values);

    QString m_connection;
    QString m_path;
    QSqlQuery* m_insert = nullptr;
    DJournalLock m_lock;
};

#endif // D_RESULT_JOURNAL_H
