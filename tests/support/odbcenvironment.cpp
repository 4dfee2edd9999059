#include "odbcenvironment.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {

const char* const SqliteDriverPath = "/usr/lib/x86_64-linux-gnu/odbc/libsqlite3odbc.so";
const char* const PostgresDriverPath = "/usr/lib/x86_64-linux-gnu/odbc/psqlodbcw.so";

void writeText(const QString& file, const QByteArray& text)
{
    QFile f(file);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate) || f.write(text) != text.size())
        qFatal("cannot write %s", qPrintable(file));
}

void remember(const char* name, QByteArray& value, bool& had)
{
    had = qEnvironmentVariableIsSet(name);
    value = qgetenv(name);
}

void restore(const char* name, const QByteArray& value, bool had)
{
    if (had)
        qputenv(name, value);
    else
        qunsetenv(name);
}

} // namespace

OdbcEnvironment::OdbcEnvironment()
    : m_dir(QDir::tempPath() + QStringLiteral("/dbimport-odbc-XXXXXX"))
{
    if (!m_dir.isValid())
        return;
    remember("ODBCSYSINI", m_oldSysIni, m_hadSysIni);
    remember("ODBCINI", m_oldIni, m_hadIni);
    remember("ODBCINSTINI", m_oldInstIni, m_hadInstIni);

    const QByteArray drivers =
        QByteArray("[") + SqliteDriverName + "]\n" + "Description=SQLite3 ODBC Driver\n" +
        "Driver=" + SqliteDriverPath + "\n" + "Setup=" + SqliteDriverPath + "\n" +
        "UsageCount=1\n\n" + "[" + PostgresDriverName + "]\n" +
        "Description=PostgreSQL ODBC driver (Unicode version)\n" + "Driver=" + PostgresDriverPath +
        "\n" + "Setup=/usr/lib/x86_64-linux-gnu/odbc/libodbcpsqlS.so\n" + "UsageCount=1\n";
    writeText(m_dir.filePath(QStringLiteral("odbcinst.ini")), drivers);
    writeOdbcIni();

    qputenv("ODBCSYSINI", QFile::encodeName(m_dir.path()));
    // A set ODBCINSTINI would point the driver manager away from our odbcinst.ini.
    qunsetenv("ODBCINSTINI");
    qputenv("ODBCINI", QFile::encodeName(m_dir.filePath(QStringLiteral("odbc.ini"))));
    m_valid = true;
}

OdbcEnvironment::~OdbcEnvironment()
{
    if (!m_valid)
        return;
    restore("ODBCSYSINI", m_oldSysIni, m_hadSysIni);
    restore("ODBCINI", m_oldIni, m_hadIni);
    restore("ODBCINSTINI", m_oldInstIni, m_hadInstIni);
}

void OdbcEnvironment::addSqliteDsn(const QString& dsn, const QString& file)
{
    m_dsnText += "[" + dsn.toUtf8() + "]\n" + "Driver=" + SqliteDriverName + "\n" +
                 "Database=" + QFile::encodeName(QFileInfo(file).absoluteFilePath()) + "\n" +
                 "Timeout=2000\n\n";
    writeOdbcIni();
}

void OdbcEnvironment::addPostgresDsn(const QString& dsn, const QString& host, int port,
                                     const QString& database, const QString& user,
                                     const QString& password)
{
    m_dsnText += "[" + dsn.toUtf8() + "]\n" + "Driver=" + PostgresDriverName + "\n" +
                 "Servername=" + host.toUtf8() + "\n" + "Port=" + QByteArray::number(port) + "\n" +
                 "Database=" + database.toUtf8() + "\n" + "Username=" + user.toUtf8() + "\n" +
                 "Password=" + password.toUtf8() + "\n\n";
    writeOdbcIni();
}

QString OdbcEnvironment::sqliteDriverString(const QString& file)
{
    return QStringLiteral("Driver={%1};Database=%2;")
        .arg(QLatin1String(SqliteDriverName), QFileInfo(file).absoluteFilePath());
}

void OdbcEnvironment::writeOdbcIni()
{
    // The same data sources serve as system and user ones, so whichever file the driver
    // manager reads first, it finds them.
    writeText(m_dir.filePath(QStringLiteral("odbc.ini")), m_dsnText);
}
