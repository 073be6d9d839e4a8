#ifndef D_COLLECTOR_AUDIT_H
#define D_COLLECTOR_AUDIT_H

class DPostgresConnection;

// hytorc-collector --audit: one line per station from the database alone (ids held, the last,
// gaps open with their ranges, gaps filled, gaps unrecoverable with their ids); exit status 1
// when any gap is open, 3 when the database cannot be read.
class DCollectorAudit
{
public:
    explicit DCollectorAudit(DPostgresConnection* connection) : m_connection(connection) {}

    int run();

private:
    DPostgresConnection* m_connection;
};

#endif // D_COLLECTOR_AUDIT_H
