#include "odbcenvironment.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {

const char* const Variables[] = {"ODBCSYSINI", "ODBCINI", "ODBCINSTINI"};

void writeText(const QString& file, const QByteArray& text)
{
    QFile f(file);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate) || f.write(text) != text.size())
        qFatal("cannot write %s", qPrintable(file));
}

} // namespace

OdbcEnvironment::OdbcEnvironment()
    : m_dir(QDir::tempPath() + QStringLiteral("/dbimport-odbc-XXXXXX"))
{
    if (!m_dir.isValid())
        return;
    for (const char* name : Variables) {
        if (qEnvironmentVariableIsSet(name))
            m_saved.append({name, qgetenv(name)});
    }
    const QByteArray odbc = "/usr/lib/x86_64-linux-gnu/odbc/";
    writeText(m_dir.filePath("odbcinst.ini"),
              "[SQLite3]\nDescription=SQLite3 ODBC Driver\nDriver=" + odbc +
                  "libsqlite3odbc.so\nSetup=" + odbc + "libsqlite3odbc.so\nUsageCount=1\n\n"
                  "[PostgreSQL Unicode]\nDescription=PostgreSQL ODBC driver (Unicode version)\n"
                  "Driver=" + odbc + "psqlodbcw.so\nSetup=" + odbc + "libodbcpsqlS.so\n"
                  "UsageCount=1\n");
    writeText(m_dir.filePath("odbc.ini"), QByteArray());
    qputenv("ODBCSYSINI", QFile::encodeName(m_dir.path()));
    // A set ODBCINSTINI would point the driver manager away from our odbcinst.ini.
    qunsetenv("ODBCINSTINI");
    qputenv("ODBCINI", QFile::encodeName(m_dir.filePath("odbc.ini")));
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
    // The same file serves as system and user data sources, whichever is read first.
    m_dsnText += "[" + dsn.toUtf8() + "]\nDriver=SQLite3\nDatabase=" +
                 QFile::encodeName(QFileInfo(file).absoluteFilePath()) + "\nTimeout=2000\n\n";
    writeText(m_dir.filePath("odbc.ini"), m_dsnText);
}

QString OdbcEnvironment::sqliteDriverString(const QString& file)
{
    return QStringLiteral("Driver={SQLite3};Database=%1;").arg(QFileInfo(file).absoluteFilePath());
}
