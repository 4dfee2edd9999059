#include "mariadbtestserver.h"

#include <QCoreApplication>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

static int g_counter = 0;

static QString variable(const char* name)
{
    return qEnvironmentVariable(("DBIMPORT_TEST_MARIADB_" + QByteArray(name)).constData());
}

// By driver path, so fixtures work with or without a test ODBC configuration.
static QString runOn(const MariaDbTestServer& s, const QString& db, const QStringList& statements)
{
    const QString name = QStringLiteral("mariadb-fixture-%1").arg(++g_counter);
    QString result;
    {
        QSqlDatabase conn = QSqlDatabase::addDatabase("QODBC", name);
        // The driver cannot parse a string that ends in ';' (see SourceConnection).
        QString odbc = s.driverString(db).replace("{MariaDB Unicode}",
                                                  "/usr/lib/x86_64-linux-gnu/odbc/libmaodbc.so");
        odbc.chop(1);
        conn.setDatabaseName(odbc);
        if (!conn.open())
            result = "cannot connect to " + db + ": " + conn.lastError().text();
        for (int i = 0; result.isEmpty() && i < statements.size(); ++i) {
            QSqlQuery query(conn);
            if (!query.exec(statements.at(i)))
                result = statements.at(i) + ": " + query.lastError().text();
        }
    }
    QSqlDatabase::removeDatabase(name);
    return result;
}

bool MariaDbTestServer::fromEnvironment(MariaDbTestServer& server, QString& reason)
{
    server = {variable("HOST"), variable("PORT").toInt(), variable("DB"), variable("USER"),
              variable("PASSWORD")};
    reason = "no MariaDB test server (DBIMPORT_TEST_MARIADB_* not set); scripts/test.sh starts one";
    return !server.host.isEmpty() && server.port && !server.database.isEmpty() &&
           !server.user.isEmpty() && !server.password.isEmpty();
}

QString MariaDbTestServer::driverString(const QString& db) const
{
    return QStringLiteral("Driver={MariaDB Unicode};Server=%1;Port=%2;Database=%3;UID=%4;"
                          "PWD={%5};")
        .arg(host, QString::number(port), db.isEmpty() ? database : db, user, password);
}

MariaDbTestDatabase::MariaDbTestDatabase(const MariaDbTestServer& server)
    : m_server(server), m_name(QStringLiteral("dbimport_t%1_%2")
                                   .arg(QCoreApplication::applicationPid())
                                   .arg(++g_counter))
{
    m_error = runOn(server, server.database,
                    {"DROP DATABASE IF EXISTS " + m_name, "CREATE DATABASE " + m_name});
    if (!m_error.isEmpty())
        m_name.clear();
}

MariaDbTestDatabase::~MariaDbTestDatabase()
{
    if (!m_name.isEmpty())
        runOn(m_server, m_server.database, {"DROP DATABASE IF EXISTS " + m_name});
}

QString MariaDbTestDatabase::run(const QStringList& statements) const
{
    return runOn(m_server, m_name, statements);
}
