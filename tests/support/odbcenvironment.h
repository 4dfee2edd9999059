#pragma once

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

// A test-local unixODBC configuration: its own odbcinst.ini (the SQLite 3 and PostgreSQL
// Unicode drivers) and odbc.ini, reached through ODBCSYSINI/ODBCINI, so that no system
// or user configuration is read or touched. The previous variables come back on
// destruction. Create it before the first ODBC connection of the test.
class OdbcEnvironment final
{
public:
    static constexpr const char* SqliteDriverName = "SQLite3";
    static constexpr const char* PostgresDriverName = "PostgreSQL Unicode";

    OdbcEnvironment();
    ~OdbcEnvironment();
    OdbcEnvironment(const OdbcEnvironment&) = delete;
    OdbcEnvironment& operator=(const OdbcEnvironment&) = delete;

    bool isValid() const { return m_valid; }
    QString folder() const { return m_dir.path(); }

    // Adds a data source name for a SQLite file through the SQLite 3 ODBC driver.
    void addSqliteDsn(const QString& dsn, const QString& file);
    // Adds a data source name for a PostgreSQL database through the Unicode driver.
    void addPostgresDsn(const QString& dsn, const QString& host, int port, const QString& database,
                        const QString& user, const QString& password);

    // "Driver={SQLite3};Database=<file>;"
    static QString sqliteDriverString(const QString& file);

private:
    void writeOdbcIni();

    QTemporaryDir m_dir;
    bool m_valid = false;
    QByteArray m_dsnText;
    QByteArray m_oldSysIni, m_oldIni, m_oldInstIni;
    bool m_hadSysIni = false, m_hadIni = false, m_hadInstIni = false;
};
