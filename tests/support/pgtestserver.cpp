#include "pgtestserver.h"

#include <QAtomicInteger>
#include <QCoreApplication>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

namespace {

QAtomicInteger<int> g_counter;
const char* const DriverPath = "/usr/lib/x86_64-linux-gnu/odbc/psqlodbcw.so";

// Connects by driver path, so fixtures work with or without a test ODBC configuration.
QString adminString(const PgTestServer& s, const QString& db)
{
    return QStringLiteral("Driver=%1;Server=%2;Port=%3;Database=%4;Uid=%5;Pwd={%6};")
        .arg(QLatin1String(DriverPath), s.host, QString::number(s.port), db, s.user, s.password);
}

QString runOn(const PgTestServer& s, const QString& db, const QStringList& statements,
              QStringList* firstColumn)
{
    static QAtomicInteger<int> connections;
    const QString name = QStringLiteral("pg-fixture-%1").arg(connections.fetchAndAddRelaxed(1));
    QString result;
    {
        QSqlDatabase conn = QSqlDatabase::addDatabase(QStringLiteral("QODBC"), name);
        conn.setDatabaseName(adminString(s, db));
        if (!conn.open()) {
            result = QStringLiteral("cannot connect to %1: %2").arg(db, conn.lastError().text());
        } else {
            for (const QString& statement : statements) {
                QSqlQuery query(conn);
                if (!query.exec(statement)) {
                    result = QStringLiteral("%1: %2").arg(statement, query.lastError().text());
                    break;
                }
                if (firstColumn) {
                    while (query.next())
                        firstColumn->append(query.value(0).toString());
                }
            }
            conn.close();
        }
    }
    QSqlDatabase::removeDatabase(name);
    return result;
}

} // namespace

bool PgTestServer::fromEnvironment(PgTestServer& server, QString& reason)
{
    const QStringList names = {"DBIMPORT_TEST_PG_HOST", "DBIMPORT_TEST_PG_PORT",
                               "DBIMPORT_TEST_PG_DB", "DBIMPORT_TEST_PG_USER",
                               "DBIMPORT_TEST_PG_PASSWORD"};
    QStringList missing;
    for (const QString& n : names) {
        if (qEnvironmentVariableIsEmpty(n.toLatin1().constData()))
            missing << n;
    }
    if (!missing.isEmpty()) {
        reason = QStringLiteral("no PostgreSQL test server (%1 not set); scripts/test.sh "
                                "starts one")
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
    return QStringLiteral("Driver={PostgreSQL Unicode};Server=%1;Port=%2;Database=%3;Uid=%4;"
                          "Pwd={%5};")
        .arg(host, QString::number(port), db.isEmpty() ? database : db, user, password);
}

PgTestDatabase::PgTestDatabase(const PgTestServer& server) : m_server(server)
{
    m_name = QStringLiteral("dbimport_t%1_%2")
                 .arg(QCoreApplication::applicationPid())
                 .arg(g_counter.fetchAndAddRelaxed(1));
    m_error = runOn(m_server, m_server.database,
                    {QStringLiteral("DROP DATABASE IF EXISTS %1").arg(m_name),
                     QStringLiteral("CREATE DATABASE %1").arg(m_name)},
                    nullptr);
    if (!m_error.isEmpty())
        m_name.clear();
}

PgTestDatabase::~PgTestDatabase()
{
    if (!m_name.isEmpty())
        runOn(m_server, m_server.database,
              {QStringLiteral("DROP DATABASE IF EXISTS %1 WITH (FORCE)").arg(m_name)}, nullptr);
}

QString PgTestDatabase::run(const QStringList& statements) const
{
    return runOn(m_server, m_name, statements, nullptr);
}

QStringList PgTestDatabase::column(const QString& query) const
{
    QStringList values;
    const QString error = runOn(m_server, m_name, {query}, &values);
    if (!error.isEmpty())
        return {QStringLiteral("<error>"), error};
    return values;
}

QStringList PgSampleCustomerStatements()
{
    // Unquoted names fold to lower case, so hand-written SQL in any case reaches them.
    return {
        QStringLiteral("CREATE TABLE Customers (ID serial PRIMARY KEY, Name varchar(50), "
                       "Email text, Balance numeric(10,2), Joined date, LastSeen timestamp, "
                       "Active boolean, Photo bytea)"),
        QStringLiteral("INSERT INTO Customers (Name, Email, Balance, Joined, LastSeen, Active) "
                       "VALUES ('Ann Smith', 'ann@example.com', 12.5, '2020-01-31', "
                       "'2021-02-03 04:05:06', true), ('SELECT', 'select@example.com', 0, "
                       "'2019-12-01', '2019-12-01 00:00:00', false), ('Bob Jones', "
                       "'bob@example.com', -3, '2018-06-15', '2018-06-15 12:00:00', true)"),
        QStringLiteral("CREATE TABLE \"Order Lines\" (\"Line No\" integer, Item text)"),
        QStringLiteral("CREATE VIEW ActiveCustomers AS SELECT * FROM Customers WHERE Active"),
    };
}
