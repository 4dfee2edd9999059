#pragma once

#include <QString>
#include <QStringList>

// The throw-away PostgreSQL server scripts/pg-test-server.sh starts, described by the
// variables it exports (DBIMPORT_TEST_PG_HOST, _PORT, _DB, _USER, _PASSWORD). Without
// them the PostgreSQL tests are skipped, so a plain ctest run by hand stays green.
struct PgTestServer
{
    QString host;
    int port = 0;
    QString database;
    QString user;
    QString password;

    // False with the reason to skip when the variables are missing.
    static bool fromEnvironment(PgTestServer& server, QString& reason);
    // An ODBC string for the "PostgreSQL Unicode" driver of an OdbcEnvironment on the
    // given database (empty: the server's test database).
    QString driverString(const QString& db = QString()) const;
};

// A fresh database of its own on the test server, so tests running side by side never
// see each other's tables; dropped again on destruction.
class PgTestDatabase final
{
public:
    explicit PgTestDatabase(const PgTestServer& server);
    ~PgTestDatabase();
    PgTestDatabase(const PgTestDatabase&) = delete;
    PgTestDatabase& operator=(const PgTestDatabase&) = delete;

    // Empty when the database was created, else why not.
    QString error() const { return m_error; }
    QString name() const { return m_name; }
    // Runs the statements in order with autocommit, outside the code under test; empty on
    // success, else the failing statement and the error.
    QString run(const QStringList& statements) const;
    // First column of every row of the query, as text; "<error>" and the message on failure.
    QStringList column(const QString& query) const;

private:
    PgTestServer m_server;
    QString m_name;
    QString m_error;
};

// The sample tables of SampleCustomerStatements() in PostgreSQL's own types (names
// unquoted, so they fold to lower case; "Order Lines" keeps its blank).
QStringList PgSampleCustomerStatements();

#define DBIMPORT_REQUIRE_PG(server)                                                                \
    do {                                                                                           \
        QString pgSkipReason_;                                                                     \
        if (!PgTestServer::fromEnvironment(server, pgSkipReason_))                                 \
            QSKIP(qPrintable(pgSkipReason_));                                                      \
    } while (false)
