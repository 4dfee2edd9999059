#pragma once

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

// A test-local unixODBC configuration (its own odbcinst.ini with the SQLite 3 and
// PostgreSQL Unicode drivers, and odbc.ini) reached through ODBCSYSINI/ODBCINI, so no
// system or user configuration is read or touched; the previous variables come back on
// destruction. Create it before the first ODBC connection of the test.
class OdbcEnvironment final
{
public:
    OdbcEnvironment();
    ~OdbcEnvironment();
    OdbcEnvironment(const OdbcEnvironment&) = delete;
    OdbcEnvironment& operator=(const OdbcEnvironment&) = delete;

    bool isValid() const { return m_valid; }
    // Adds a data source name for a SQLite file through the SQLite 3 ODBC driver.
    void addSqliteDsn(const QString& dsn, const QString& file);
    // "Driver={SQLite3};Database=<file>;"
    static QString sqliteDriverString(const QString& file);

private:
    QTemporaryDir m_dir;
    bool m_valid = false;
    QByteArray m_dsnText;
    QList<QPair<const char*, QByteArray>> m_saved; // variables that were set before
};
