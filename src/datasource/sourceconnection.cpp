#include "sourceconnection.h"

#include <QAtomicInteger>
#include <QSqlDriver>
#include <QSqlError>

#include "connectionstring.h"
#include "util/apperror.h"

namespace {

QAtomicInteger<quint64> g_counter;

// PostgreSQL's driver describes boolean columns as text unless told otherwise, and the
// field lists are to call them Boolean. Other drivers ignore the keyword; a string that
// sets it itself keeps its own choice.
QString withBooleans(const QString& odbc)
{
    QList<QPair<QString, QString>> pairs;
    QString message;
    if (!ParseConnectionString(odbc, pairs, message))
        return odbc;
    for (const auto& pair : pairs) {
        if (pair.first.compare(QLatin1String("BoolsAsChar"), Qt::CaseInsensitive) == 0)
            return odbc;
    }
    QString result = odbc.trimmed();
    if (!result.isEmpty() && !result.endsWith(QLatin1Char(';')))
        result += QLatin1Char(';');
    return result + QStringLiteral("BoolsAsChar=0;");
}

// MariaDB's driver (Connector/ODBC 3.1) refuses a string that ends in ';' with "Error while
// parsing DSN" when it is handed with its length, as Qt does; the separator adds nothing.
QString withoutClosingSeparator(QString odbc)
{
    while (odbc.endsWith(QLatin1Char(';')) || (!odbc.isEmpty() && odbc.back().isSpace()))
        odbc.chop(1);
    return odbc;
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
        db.setDatabaseName(
            target.driver == QLatin1String("QODBC")
                ? withoutClosingSeparator(QtOdbcDatabaseName(withBooleans(target.databaseName)))
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
