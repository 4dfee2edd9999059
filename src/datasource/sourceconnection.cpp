#include "sourceconnection.h"

#include <mutex>

#include <QAtomicInteger>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>

#include <sql.h>
#include <sqlext.h>

#include "connectionstring.h"
#include "util/apperror.h"

namespace {

QAtomicInteger<quint64> g_counter;

// Keywords the PostgreSQL and MariaDB drivers are given unless the string sets them itself;
// other drivers ignore them.
// - Boolean columns are described as text unless told otherwise, and the field lists are
//   to call them Boolean.
// - Without declare/fetch the driver reads a statement's whole result into memory before
//   the first row arrives: a big table would need gigabytes. Fetching through a cursor in
//   slices keeps the memory flat; the slice size was chosen with scripts/bench-import.sh.
QString withDriverDefaults(const QString& odbc, uint loginTimeout)
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
    // - MariaDB's driver lets the login attribute pass and waits for a silent server's
    //   greeting for ever; its own keyword it keeps to.
    if (!isSet("CONN_TIMEOUT"))
        result += QStringLiteral("CONN_TIMEOUT=%1;").arg(loginTimeout);
    return result;
}

// MariaDB's driver (Connector/ODBC 3.1) refuses a string that ends in ';' with "Error while
// parsing DSN" when it is handed with its length, as Qt does; the separator adds nothing.
QString withoutClosingSeparator(QString odbc)
{
    while (odbc.endsWith(QLatin1Char(';')) || (!odbc.isEmpty() && odbc.back().isSpace()))
        odbc.chop(1);
    return odbc;
}

// A text answer of SQLGetInfo on the ODBC connection behind db; empty when there is none.
QString odbcInfo(const QSqlDatabase& db, SQLUSMALLINT what)
{
    const QVariant handle = db.driver() ? db.driver()->handle() : QVariant();
    // Qt's ODBC driver hands out its connection handle as a void*.
    if (!db.driver() || db.driverName() != QLatin1String("QODBC") || !handle.isValid() ||
        handle.metaType() != QMetaType::fromType<void*>())
        return QString();
    SQLHANDLE hdbc = *static_cast<const SQLHANDLE*>(handle.constData());
    SQLCHAR buffer[256] = {};
    SQLSMALLINT length = 0;
    if (!hdbc || !SQL_SUCCEEDED(SQLGetInfo(hdbc, what, buffer, sizeof buffer, &length)))
        return QString();
    return QString::fromUtf8(reinterpret_cast<const char*>(buffer));
}

bool execute(QSqlDatabase& db, const QString& sql, QString& errorText)
{
    QSqlQuery query(db);
    if (query.exec(sql))
        return true;
    errorText = SourceConnection::errorText(query.lastError());
    return false;
}

} // namespace

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
                               ? withoutClosingSeparator(QtOdbcDatabaseName(
                                     withDriverDefaults(target.databaseName, target.loginTimeout)))
                               : target.databaseName);
        db.setConnectOptions(target.connectOptions);
        // The PostgreSQL driver reads its settings through unixODBC's profile cache, which
        // two threads connecting at once (the results viewer's reader and counter, a
        // connection test) can free under each other's feet: connects take turns.
        static std::mutex connecting;
        std::unique_lock<std::mutex> turn(connecting);
        const bool opened = db.open();
        turn.unlock();
        if (!opened) {
            errorText = SourceConnection::errorText(db.lastError());
        } else {
            ok = makeReadOnly(db, false, errorText);
            // The rollback at close() is what keeps the source unchanged for drivers
            // that take the read-only hint as a hint only.
            if (ok && db.driver()->hasFeature(QSqlDriver::Transactions)) {
                if (!db.transaction()) {
                    errorText = SourceConnection::errorText(db.lastError());
                    ok = false;
                } else {
                    m_inTransaction = true;
                    ok = makeReadOnly(db, true, errorText);
                }
            }
            if (!ok) {
                if (m_inTransaction)
                    db.rollback();
                m_inTransaction = false;
                db.close();
            }
        }
    }
    if (!ok)
        QSqlDatabase::removeDatabase(m_name);
    return ok;
}

// The server's own guard, for the servers that have one; it holds even for a statement
// that got past CheckReadOnlyStatement. Called once before the transaction begins (the
// session) and once inside it (the transaction itself).
bool SourceConnection::makeReadOnly(QSqlDatabase& db, bool inTransaction, QString& errorText)
{
    if (db.driverName() != QLatin1String("QODBC")) {
        m_quote.clear(); // SQLite, opened read-only
        return true;
    }
    if (!inTransaction) {
        m_dbms = odbcInfo(db, SQL_DBMS_NAME);
        const QString quote = odbcInfo(db, SQL_IDENTIFIER_QUOTE_CHAR).trimmed();
        // These take "[name]" as the statements are built by default.
        static const QStringList brackets = {QStringLiteral("SQLite"),
                                             QStringLiteral("Microsoft SQL Server"),
                                             QStringLiteral("ACCESS"), QStringLiteral("Sybase")};
        bool bracketed = false;
        for (const QString& name : brackets)
            bracketed = bracketed || m_dbms.contains(name, Qt::CaseInsensitive);
        m_quote = bracketed ? QString() : quote;
    }

    const bool postgres = m_dbms.contains(QLatin1String("PostgreSQL"), Qt::CaseInsensitive);
    const bool mysql = m_dbms.contains(QLatin1String("MySQL"), Qt::CaseInsensitive) ||
                       m_dbms.contains(QLatin1String("MariaDB"), Qt::CaseInsensitive);
    const bool sqlite = m_dbms.contains(QLatin1String("SQLite"), Qt::CaseInsensitive);
    if (!inTransaction) {
        if (postgres)
            return execute(db,
                           QStringLiteral("SET SESSION CHARACTERISTICS AS TRANSACTION READ ONLY"),
                           errorText);
        if (mysql)
            return execute(db, QStringLiteral("SET SESSION TRANSACTION READ ONLY"), errorText);
        if (sqlite)
            return execute(db, QStringLiteral("PRAGMA query_only = 1"), errorText);
        return true;
    }
    if (postgres) {
        if (!execute(db, QStringLiteral("SET TRANSACTION READ ONLY"), errorText))
            return false;
        // The driver may have begun its transaction before the session setting: make sure.
        QSqlQuery check(db);
        if (!check.exec(QStringLiteral("SHOW transaction_read_only")) || !check.next() ||
            check.value(0).toString() != QLatin1String("on")) {
            errorText = AppError(AppError::DataSource,
                                 QStringLiteral("The PostgreSQL server did not make the "
                                                "connection read-only."))
                            .numberAndDescription();
            return false;
        }
        m_serverReadOnly = true;
    }
    if (mysql) {
        // The session setting holds for the transaction the driver begins, but only the
        // server's own answer makes it certain. Servers older or newer than the variable's
        // name simply stay as unconfirmed as before.
        for (const char* variable : {"@@tx_read_only", "@@transaction_read_only"}) {
            QSqlQuery check(db);
            if (check.exec(QStringLiteral("SELECT ") + QLatin1String(variable)) && check.next()) {
                m_serverReadOnly = check.value(0).toInt() == 1;
                break;
            }
        }
    }
    return true;
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
    m_dbms.clear();
    m_quote.clear();
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
