#pragma once

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

// A test-local unixODBC configuration (SQLite3, PostgreSQL Unicode, MariaDB Unicode drivers), so no
// system or user configuration is touched. Create it before the first ODBC connection.
class OdbcEnvironment final
{
public:
    OdbcEnvironment();
    ~OdbcEnvironment();
    Q_DISABLE_COPY_MOVE(OdbcEnvironment)

    bool isValid() const { return m_valid; }
    void addSqliteDsn(const QString& dsn, const QString& file);
    void addDsn(const QString& dsn, const QString& driver,
                const QList<QPair<QString, QString>>& attributes);
    static QString sqliteDriverString(const QString& file); // "Driver={SQLite3};Database=..."

private:
    QTemporaryDir m_dir;
    bool m_valid = false;
    QByteArray m_dsnText;
    QList<QPair<const char*, QByteArray>> m_saved; // variables that were set before
};
