#pragma once

#include <QString>
#include <QStringList>

// The throw-away server scripts/pg-test-server.sh starts and describes in DBIMPORT_TEST_PG_*.
struct PgTestServer
{
    QString host;
    int port = 0;
    QString database;
    QString user;
    QString password;

    static bool fromEnvironment(PgTestServer& server, QString& reason); // reason to skip
    // For the "PostgreSQL Unicode" driver of an OdbcEnvironment; empty db: the test database.
    QString driverString(const QString& db = QString()) const;
};

// A fresh database of its own, so tests side by side never see each other's tables.
class PgTestDatabase final
{
public:
    explicit PgTestDatabase(const PgTestServer& server);
    ~PgTestDatabase();
    Q_DISABLE_COPY_MOVE(PgTestDatabase)

    QString error() const { return m_error; } // empty when the database was created
    QString name() const { return m_name; }
    // Outside the code under test. Empty, or the failing statement and the error.
    QString run(const QStringList& statements) const;
    QStringList column(const QString& query) const; // first column; "<error>", message

private:
    PgTestServer m_server;
    QString m_name;
    QString m_error;
};

// SampleCustomerStatements() in PostgreSQL's own types (unquoted names fold to lower case).
QStringList PgSampleCustomerStatements();

#define DBIMPORT_REQUIRE_PG(server)                                                                \
    do {                                                                                           \
        if (QString why_; !PgTestServer::fromEnvironment(server, why_))                            \
            QSKIP(qPrintable(why_));                                                               \
    } while (false)
