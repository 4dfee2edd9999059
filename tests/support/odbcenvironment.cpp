#include "odbcenvironment.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

static const char* const Variables[] = {"ODBCSYSINI", "ODBCINI", "ODBCINSTINI"};

static void writeText(const QString& file, const QByteArray& text)
{
    QFile f(file);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate) || f.write(text) != text.size())
        qFatal("cannot write %s", qPrintable(file));
}

OdbcEnvironment::OdbcEnvironment() : m_dir(QDir::tempPath() + "/dbimport-odbc-XXXXXX")
{
    if (!m_dir.isValid())
        return;
    for (const char* name : Variables) {
        if (qEnvironmentVariableIsSet(name))
            m_saved.append({name, qgetenv(name)});
    }
    const QByteArray lib = "/usr/lib/x86_64-linux-gnu/odbc/";
    writeText(m_dir.filePath("odbcinst.ini"),
              "[SQLite3]\nDriver=" + lib + "libsqlite3odbc.so\nSetup=" + lib +
                  "libsqlite3odbc.so\n\n[PostgreSQL Unicode]\nDriver=" + lib +
                  "psqlodbcw.so\nSetup=" + lib +
                  "libodbcpsqlS.so\n\n[MariaDB Unicode]\nDriver=" + lib + "libmaodbc.so\n");
    writeText(m_dir.filePath("odbc.ini"), QByteArray());
    qputenv("ODBCSYSINI", QFile::encodeName(m_dir.path()));
    qputenv("ODBCINI", QFile::encodeName(m_dir.filePath("odbc.ini")));
    qunsetenv("ODBCINSTINI"); // it would point away from our odbcinst.ini
    m_valid = true;
}

OdbcEnvironment::~OdbcEnvironment()
{
    if (!m_valid)
        return;
    for (const char* name : Variables)
        qunsetenv(name);
    for (const auto& [name, value] : m_saved)
        qputenv(name, value);
}

void OdbcEnvironment::addSqliteDsn(const QString& dsn, const QString& file)
{
    addDsn(dsn, "SQLite3", {{"Database", QFileInfo(file).absoluteFilePath()}, {"Timeout", "2000"}});
}

void OdbcEnvironment::addDsn(const QString& dsn, const QString& driver,
                             const QList<QPair<QString, QString>>& attributes)
{
    // One file serves as system and user data sources, whichever is read first.
    m_dsnText += "[" + dsn.toUtf8() + "]\nDriver=" + driver.toUtf8() + "\n";
    for (const auto& [key, value] : attributes)
        m_dsnText += key.toUtf8() + "=" + value.toUtf8() + "\n";
    m_dsnText += "\n";
    writeText(m_dir.filePath("odbc.ini"), m_dsnText);
}

QString OdbcEnvironment::sqliteDriverString(const QString& file)
{
    return "Driver={SQLite3};Database=" + QFileInfo(file).absoluteFilePath() + ";";
}
