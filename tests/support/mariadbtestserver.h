#pragma once

#include <QString>
#include <QStringList>

// The throw-away server scripts/mariadb-test-server.sh starts and describes in
// DBIMPORT_TEST_MARIADB_*.
struct MariaDbTestServer
{
    QString host;
    int port = 0;
    QString database;
    QString user;
    QString password;

    static bool fromEnvironment(MariaDbTestServer& server, QString& reason); // reason to skip
    // For the "MariaDB Unicode" driver of an OdbcEnvironment; empty db: the test database.
    QString driverString(const QString& db = QString()) const;
};

// A fresh database of its own, so tests side by side never see each other's tables.
class MariaDbTestDatabase final
{
public:
    explicit MariaDbTestDatabase(const MariaDbTestServer& server);
    ~MariaDbTestDatabase();
    Q_DISABLE_COPY_MOVE(MariaDbTestDatabase)

    QString error() const { return m_error; } // empty when the database was created
    QString name() const { return m_name; }
    // Outside the code under test. Empty, or the failing statement and the error.
    QString run(const QStringList& statements) const;

private:
    MariaDbTestServer m_server;
    QString m_name;
    QString m_error;
};

#define DBIMPORT_REQUIRE_MARIADB(server)                                                           \
    do {                                                                                           \
        if (QString why_; !MariaDbTestServer::fromEnvironment(server, why_))                       \
            QSKIP(qPrintable(why_));                                                               \
    } while (false)
