#ifndef D_JOURNAL_LOCK_H
#define D_JOURNAL_LOCK_H

#include <QString>

// One writer per journal: an advisory lock (flock) on JOURNAL.lock, held while this object
// holds it, with the holder's pid written in it so that a second service can name the first.
class DJournalLock
{
public:
    DJournalLock() = default;
    ~DJournalLock();
    DJournalLock(const DJournalLock&) = delete;
    DJournalLock& operator=(const DJournalLock&) = delete;

    // False with one line when another process holds it or the lock file cannot be made.
    bool take(const QString& journalPath, QString* error);
    void release();

private:
    int m_fd = -1;
};

#endif // D_JOURNAL_LOCK_H
