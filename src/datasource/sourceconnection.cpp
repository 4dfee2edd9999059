#include "sourceconnection.h"

#include <QAtomicInteger>
#include <QSqlDriver>
#include <QSqlError>

#include "connectionstring.h"
#include "util/apperror.h"

namespace {

QAtomicInteger<quint64> g_counter;

// Keywords the PostgreSQL driver is given unless the string sets them itself; other drivers
// ignore them.
// - Boolean columns are described as text unless told otherwise, and the field lists are
//   to call them Boolean.
// - Without declare/fetch the driver reads a statement's whole result into memory before
//   the first row arrives: a big table would need gigabytes. Fetching through a cursor in
//   slices keeps the memory flat; the slice size was chosen with scripts/bench-import.sh.
QString withDriverDefaults(const QString& odbc)
{
    QList<QPair<QString, QString>> pairs;
    QString message;
    if (!ParseConnectionString(odbc, pairs, message))
        return odbc;
    auto isSet = [&](const char* key) {
        for (const auto& pair : pairs) {
            if (pair.first.compare(QLatin1String(key), Qt::CaseInsensitive) == 0)
                return true;
        }
        return false;
    };
    QString result = odbc.trimmed();
    if (!result.isEmpty() && !result.endsWith(QLatin1Char(';')))
        result += QLatin1Char(';');
    if (!isSet("BoolsAsChar"))
        result += QStringLiteral("BoolsAsChar=0;");
    if (!isSet("UseDeclareFetch"))
        result += QStringLiteral("UseDeclareFetch=1;");
    if (!isSet("Fetch") && !isSet("UseDeclareFetch"))
        result += QStringLiteral("Fetch=10000;");
    return result;
}

} // namespace

// Read by the leak checker of sanitizer builds, ignored otherwise. unixODBC's profile
// reader and the PostgreSQL driver keep their parsed odbc.ini entries until the process
// ends; without this every program run that touched ODBC would end in a leak report.
// Weak, so that a test executable may bring the same list.
extern "C" __attribute__((weak)) const char* __lsan_default_suppressions();
extern "C" __attribute__((weak)) const char* __lsan_default_suppressions()
{
    return "leak:libodbcinst.so\n"
           "leak:psqlodbcw.so\n"
           "leak:psqlodbca.so\n";
}

SourceConnection::SourceConnection()
    : m_name(QStringLiteral("dbimport-source-%1-%2")
                 .arg(g_counter.fetchAndAddRelaxed(1))
                 .arg(reinterpret_cast<quintptr>(this), 0, 16))
{}

SourceConnection::~SourceConnection()
{
    close();
}

bool SourceConnection::open(const QString& conString, QString& errorText)
{
    close();

    ConnectionTarget target;
    QString message;
    if (!ResolveConnectionString(conString, target, message)) {
        errorText = AppError(AppError::DataSource, message).numberAndDescription();
        return false;
    }

    bool ok = false;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(target.driver, m_name);
        db.setDatabaseName(target.driver == QLatin1String("QODBC")
                               ? QtOdbcDatabaseName(withDriverDefaults(target.databaseName))
                               : target.databaseName);
        db.setConnectOptions(target.connectOptions);
        if (!db.open()) {
            errorText = SourceConnection::errorText(db.lastError());
        } else {
            ok = true;
            // The rollback at close() is what keeps the source unchanged for drivers
            // that take the read-only hint as a hint only.
            if (db.driver()->hasFeature(QSqlDriver::Transactions)) {
                if (!db.transaction()) {
                    errorText = SourceConnection::errorText(db.lastError());
                    db.close();
                    ok = false;
                } else {
                    m_inTransaction = true;
                }
            }
        }
    }
    if (!ok)
        QSqlDatabase::removeDatabase(m_name);
    return ok;
}

bool SourceConnection::isOpen() const
{
    return QSqlDatabase::contains(m_name) && QSqlDatabase::database(m_name, false).isOpen();
}

QSqlDatabase SourceConnection::database() const
{
    return QSqlDatabase::database(m_name, false);
}

void SourceConnection::close()
{
    if (!QSqlDatabase::contains(m_name))
        return;
    {
        QSqlDatabase db = QSqlDatabase::database(m_name, false);
        if (m_inTransaction && db.isOpen())
            db.rollback();
        db.close();
    }
    m_inTransaction = false;
    QSqlDatabase::removeDatabase(m_name);
}

QString SourceConnection::errorText(const QSqlError& error)
{
    // ODBC gives several native codes joined by ';' and at times none: the first one, or
    // the data-source number when there is no usable one.
    long number = AppError::DataSource;
    const QString native = error.nativeErrorCode().section(QLatin1Char(';'), 0, 0).trimmed();
    bool ok = false;
    const long parsed = native.toLong(&ok);
    if (ok && parsed != 0)
        number = parsed;
    QString description = error.databaseText().trimmed();
    if (description.isEmpty())
        description = error.driverText().trimmed();
    if (description.isEmpty())
        description = QStringLiteral("The data source reported an error without a text.");
    return AppError(number, description).numberAndDescription();
}
