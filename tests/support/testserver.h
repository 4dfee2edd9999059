#pragma once

#include <QString>
#include <QStringList>

// A throw-away database server that a scripts/*-test-server.sh starts and describes in
// DBIMPORT_TEST_<Traits::prefix>_*.
template <class Traits> struct TestServer
{
    QString host, database, user, password;
    int port = 0;

    static bool fromEnvironment(TestServer& server, QString& reason); // reason to skip
    // For the driver of an OdbcEnvironment; empty db: the test database.
    QString driverString(const QString& db = QString()) const;
};

// A fresh database of its own, so tests side by side never see each other's tables.
template <class Traits> class TestDatabase final
{
public:
    explicit TestDatabase(const TestServer<Traits>& server);
    ~TestDatabase();
    Q_DISABLE_COPY_MOVE(TestDatabase)

    QString error() const { return m_error; } // empty when the database was created
    QString name() const { return m_name; }
    // Outside the code under test. Empty, or the failing statement and the error.
    QString run(const QStringList& statements) const;
    QStringList column(const QString& query) const; // first column; "<error>", message

private:
    TestServer<Traits> m_server;
    QString m_name;
    QString m_error;
};

#define DBIMPORT_REQUIRE_SERVER(Server, server)                                                    \
    do {                                                                                           \
        if (QString why_; !Server::fromEnvironment(server, why_))                                  \
            QSKIP(qPrintable(why_));                                                               \
    } while (false)
