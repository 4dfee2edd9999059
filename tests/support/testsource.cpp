#include "testsource.h"

#include "odbcenvironment.h"
#include "sqlitefixture.h"

TestSource::TestSource(const QString& kind, const QStringList& statements)
{
    if (kind == "postgresql") {
        PgTestServer server;
        if (!PgTestServer::fromEnvironment(server, m_skip))
            return;
        m_skip.clear();
        m_pg = std::make_unique<PgTestDatabase>(server);
        m_error = m_pg->error().isEmpty() ? m_pg->run(statements) : m_pg->error();
        conString = server.driverString(m_pg->name());
    } else if (kind == "mariadb") {
        MariaDbTestServer server;
        if (!MariaDbTestServer::fromEnvironment(server, m_skip))
            return;
        m_skip.clear();
        m_maria = std::make_unique<MariaDbTestDatabase>(server);
        m_error = m_maria->error().isEmpty()
                      ? m_maria->run(QStringList("SET sql_mode = 'ANSI_QUOTES'") + statements)
                      : m_maria->error();
        conString = "Provider=MSDASQL;" + server.driverString(m_maria->name());
    } else {
        m_error = BuildSqliteDatabase(file(), statements);
        conString = kind == "sqlite-odbc" ? OdbcEnvironment::sqliteDriverString(file())
                                          : "Provider=SQLite;Data Source=" + file();
    }
}

QString TestSource::run(const QStringList& statements) const
{
    return m_pg      ? m_pg->run(statements)
           : m_maria ? m_maria->run(statements)
                     : BuildSqliteDatabase(file(), statements);
}

QStringList TestSource::column(const QString& query) const
{
    return m_pg      ? m_pg->column(query)
           : m_maria ? m_maria->column(query)
                     : SqliteColumn(file(), query);
}
