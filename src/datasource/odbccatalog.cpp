#include "odbccatalog.h"

#include <sql.h>
#include <sqlext.h>

namespace {

// One ODBC environment handle for the length of a listing.
class Environment final
{
public:
    Environment()
    {
        if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &m_handle))) {
            m_handle = SQL_NULL_HENV;
            return;
        }
        SQLSetEnvAttr(m_handle, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3),
                      0);
    }
    ~Environment()
    {
        if (m_handle != SQL_NULL_HENV)
            SQLFreeHandle(SQL_HANDLE_ENV, m_handle);
    }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

    SQLHENV handle() const { return m_handle; }

private:
    SQLHENV m_handle = SQL_NULL_HENV;
};

QString text(const SQLCHAR* chars)
{
    return QString::fromLocal8Bit(reinterpret_cast<const char*>(chars)).trimmed();
}

const QString kNoManager =
    QStringLiteral("The ODBC driver manager (unixODBC) could not be reached.");

} // namespace

bool ListOdbcDataSources(QList<OdbcDataSource>& sources, QString& message)
{
    sources.clear();
    Environment env;
    if (env.handle() == SQL_NULL_HENV) {
        message = kNoManager;
        return false;
    }
    SQLCHAR name[SQL_MAX_DSN_LENGTH + 1];
    SQLCHAR description[1024];
    SQLSMALLINT nameLength = 0;
    SQLSMALLINT descriptionLength = 0;
    SQLUSMALLINT direction = SQL_FETCH_FIRST; // user and system data sources alike
    while (SQL_SUCCEEDED(SQLDataSources(env.handle(), direction, name, sizeof name, &nameLength,
                                        description, sizeof description, &descriptionLength))) {
        // A name defined for the user and for the system is one data source to the driver
        // manager (the user's definition wins), so it is listed once.
        const QString dsn = text(name);
        bool listed = false;
        for (const OdbcDataSource& source : sources)
            listed = listed || source.name == dsn;
        if (!listed)
            sources.append({dsn, text(description)});
        direction = SQL_FETCH_NEXT;
    }
    return true;
}

bool ListOdbcDrivers(QStringList& drivers, QString& message)
{
    drivers.clear();
    Environment env;
    if (env.handle() == SQL_NULL_HENV) {
        message = kNoManager;
        return false;
    }
    SQLCHAR description[1024];
    SQLCHAR attributes[4096];
    SQLSMALLINT descriptionLength = 0;
    SQLSMALLINT attributesLength = 0;
    SQLUSMALLINT direction = SQL_FETCH_FIRST;
    while (SQL_SUCCEEDED(SQLDrivers(env.handle(), direction, description, sizeof description,
                                    &descriptionLength, attributes, sizeof attributes,
                                    &attributesLength))) {
        drivers.append(text(description));
        direction = SQL_FETCH_NEXT;
    }
    return true;
}
