#include "pgtestserver.h"

#include <QAtomicInteger>
#include <QCoreApplication>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

namespace {

QAtomicInteger<int> g_counter;

// Connects by driver path, so fixtures work with or without a test ODBC configuration.
QString runOn(const PgTestServer& s, const QString& db, const QStringList& statements,
              QStringList* firstColumn)
{
    const QString name = QStringLiteral("pg-fixture-%1").arg(g_counter.fetchAndAddRelaxed(1));
    QString result;
    {
        QSqlDatabase conn = QSqlDatabase::addDatabase(QStringLiteral("QODBC"), name);
        conn.setDatabaseName(
            QStringLiteral("Driver=/usr/lib/x86_64-linux-gnu/odbc/psqlodbcw.so;Server=%1;Port=%2;"
                           "Database=%3;Uid=%4;Pwd={%5};")
                .arg(s.host, QString::number(s.port), db, s.user, s.password));
        if (!conn.open())
            result = QStringLiteral("cannot connect to %1: %2").arg(db, conn.lastError().text());
        for (int i = 0; result.isEmpty() && i < statements.size(); ++i) {
            QSqlQuery query(conn);
            if (!query.exec(statements.at(i)))
                result = statements.at(i) + QStringLiteral(": ") + query.lastError().text();
            while (firstColumn && query.next())
                firstColumn->append(query.value(0).toString());
        }
    }
    QSqlDatabase::removeDatabase(name);
    return result;
}

} // namespace

bool PgTestServer::fromEnvironment(PgTestServer& server, QString& reason)
{
    QStringList missing;
    for (const char* n : {"DBIMPORT_TEST_PG_HOST", "DBIMPORT_TEST_PG_PORT", "DBIMPORT_TEST_PG_DB",
                          "DBIMPORT_TEST_PG_USER", "DBIMPORT_TEST_PG_PASSWORD"}) {
        if (qEnvironmentVariableIsEmpty(n))
            missing << QLatin1String(n);
    }
    if (!missing.isEmpty()) {
        reason = QStringLiteral("no PostgreSQL test server (%1 not set); scripts/test.sh starts one")
                     .arg(missing.join(QStringLiteral(", ")));
        return false;
    }
    server.host = qEnvironmentVariable("DBIMPORT_TEST_PG_HOST");
    server.port = qEnvironmentVariableIntValue("DBIMPORT_TEST_PG_PORT");
    server.database = qEnvironmentVariable("DBIMPORT_TEST_PG_DB");
    server.user = qEnvironmentVariable("DBIMPORT_TEST_PG_USER");
    server.password = qEnvironmentVariable("DBIMPORT_TEST_PG_PASSWORD");
    return true;
}

QString PgTestServer::driverString(const QString& db) const
{
    return QStringLiteral("Driver={PostgreSQL Unicode};Server=%1;Port=%2;Database=%3;Uid=%4;Pwd={%5};")
        .arg(host, QString::number(port), db.isEmpty() ? database : db, user, password);
}

PgTestDatabase::PgTestDatabase(const PgTestServer& server) : m_server(server)
{
    m_name = QStringLiteral("dbimport_t%1_%2")
                 .arg(QCoreApplication::applicationPid())
                 .arg(g_counter.fetchAndAddRelaxed(1));
    m_error = runOn(m_server, m_server.database,
                    {"DROP DATABASE IF EXISTS " + m_name, "CREATE DATABASE " + m_name}, nullptr);
    if (!m_error.isEmpty())
        m_name.clear();
}

PgTestDatabase::~PgTestDatabase()
{
    if (!m_name.isEmpty())
        runOn(m_server, m_server.database, {"DROP DATABASE IF EXISTS " + m_name + " WITH (FORCE)"},
              nullptr);
}

QString PgTestDatabase::run(const QStringList& statements) const
{
    return runOn(m_server, m_name, statements, nullptr);
}

QStringList PgTestDatabase::column(const QString& query) const
{
    QStringList values;
    const QString error = runOn(m_server, m_name, {query}, &values);
    return error.isEmpty() ? values : QStringList{QStringLiteral("<error>"), error};
}

QStringList PgSampleCustomerStatements()
{
    return {
        "CREATE TABLE Customers (ID serial PRIMARY KEY, Name varchar(50), Email text, "
        "Balance numeric(10,2), Joined date, LastSeen timestamp, Active boolean, Photo bytea)",
        "INSERT INTO Customers (Name, Email, Balance, Joined, LastSeen, Active) VALUES "
        "('Ann Smith', 'ann@example.com', 12.5, '2020-01-31', '2021-02-03 04:05:06', true), "
        "('SELECT', 'select@example.com', 0, '2019-12-01', '2019-12-01 00:00:00', false), "
        "('Bob Jones', 'bob@example.com', -3, '2018-06-15', '2018-06-15 12:00:00', true)",
        "CREATE TABLE \"Order Lines\" (\"Line No\" integer, Item text)",
        "CREATE VIEW ActiveCustomers AS SELECT * FROM Customers WHERE Active",
    };
}
