#include "pgtestserver.h"

#include <QCoreApplication>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

static int g_counter = 0;

static QString variable(const char* name)
{
    return qEnvironmentVariable(("DBIMPORT_TEST_PG_" + QByteArray(name)).constData());
}

// By driver path, so fixtures work with or without a test ODBC configuration.
static QString runOn(const PgTestServer& s, const QString& db, const QStringList& statements,
                     QStringList* firstColumn = nullptr)
{
    const QString name = QStringLiteral("pg-fixture-%1").arg(++g_counter);
    QString result;
    {
        QSqlDatabase conn = QSqlDatabase::addDatabase("QODBC", name);
        conn.setDatabaseName(s.driverString(db).replace(
            "{PostgreSQL Unicode}", "/usr/lib/x86_64-linux-gnu/odbc/psqlodbcw.so"));
        if (!conn.open())
            result = "cannot connect to " + db + ": " + conn.lastError().text();
        for (int i = 0; result.isEmpty() && i < statements.size(); ++i) {
            QSqlQuery query(conn);
            if (!query.exec(statements.at(i)))
                result = statements.at(i) + ": " + query.lastError().text();
            while (firstColumn && query.next())
                firstColumn->append(query.value(0).toString());
        }
    }
    QSqlDatabase::removeDatabase(name);
    return result;
}

bool PgTestServer::fromEnvironment(PgTestServer& server, QString& reason)
{
    server = {variable("HOST"), variable("PORT").toInt(), variable("DB"), variable("USER"),
              variable("PASSWORD")};
    reason = "no PostgreSQL test server (DBIMPORT_TEST_PG_* not set); scripts/test.sh starts one";
    return !server.host.isEmpty() && server.port && !server.database.isEmpty() &&
           !server.user.isEmpty() && !server.password.isEmpty();
}

QString PgTestServer::driverString(const QString& db) const
{
    return QStringLiteral("Driver={PostgreSQL Unicode};Server=%1;Port=%2;Database=%3;Uid=%4;"
                          "Pwd={%5};")
        .arg(host, QString::number(port), db.isEmpty() ? database : db, user, password);
}

PgTestDatabase::PgTestDatabase(const PgTestServer& server)
    : m_server(server), m_name(QStringLiteral("dbimport_t%1_%2")
                                   .arg(QCoreApplication::applicationPid())
                                   .arg(++g_counter))
{
    m_error = runOn(server, server.database,
                    {"DROP DATABASE IF EXISTS " + m_name, "CREATE DATABASE " + m_name});
    if (!m_error.isEmpty())
        m_name.clear();
}

PgTestDatabase::~PgTestDatabase()
{
    if (!m_name.isEmpty())
        runOn(m_server, m_server.database, {"DROP DATABASE IF EXISTS " + m_name + " WITH (FORCE)"});
}

QString PgTestDatabase::run(const QStringList& statements) const
{
    return runOn(m_server, m_name, statements);
}

QStringList PgTestDatabase::column(const QString& query) const
{
    QStringList values;
    const QString error = runOn(m_server, m_name, {query}, &values);
    return error.isEmpty() ? values : QStringList{"<error>", error};
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
        "CREATE VIEW ActiveCustomers AS SELECT * FROM Customers WHERE Active"};
}
