#include "modADO.h"

#include <QDir>
#include <QHash>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlField>
#include <QSqlQuery>
#include <QSqlRecord>

#include "readonlyguard.h"
#include "sourceconnection.h"
#include "util/apperror.h"
#include "util/messageboxes.h"
#include "util/modApplication.h"
#include "util/mousepointer.h"
#include "util/nativepath.h"

namespace {

// Lists are handed round joined by this character and split again, so a name holding it
// comes back in two pieces.
const QChar ListSeparator(0x00AC);

// ADO DataTypeEnum codes used below.
enum AdoType : int
{
    adEmpty = 0,
    adSmallInt = 2,
    adInteger = 3,
    adSingle = 4,
    adDouble = 5,
    adCurrency = 6,
    adDate = 7,
    adBSTR = 8,
    adError = 10,
    adBoolean = 11,
    adVariant = 12,
    adDecimal = 14,
    adTinyInt = 16,
    adUnsignedTinyInt = 17,
    adBigInt = 20,
    adGUID = 72,
    adBinary = 128,
    adChar = 129,
    adWChar = 130,
    adNumeric = 131,
    adDBDate = 133,
    adDBTime = 134,
    adDBTimeStamp = 135,
    adVarChar = 200,
    adLongVarChar = 201,
    adVarWChar = 202,
    adLongVarWChar = 203,
    adVarBinary = 204,
    adLongVarBinary = 205,
};

// ODBC SQL data types (sql.h, sqlext.h), spelled out so this layer needs no ODBC headers.
enum OdbcType : int
{
    SqlGuid = -11,
    SqlWLongVarChar = -10,
    SqlWVarChar = -9,
    SqlWChar = -8,
    SqlBit = -7,
    SqlTinyInt = -6,
    SqlBigInt = -5,
    SqlLongVarBinary = -4,
    SqlVarBinary = -3,
    SqlBinary = -2,
    SqlLongVarChar = -1,
    SqlChar = 1,
    SqlNumeric = 2,
    SqlDecimal = 3,
    SqlInteger = 4,
    SqlSmallInt = 5,
    SqlFloat = 6,
    SqlReal = 7,
    SqlDouble = 8,
    SqlDateTime = 9, // SQL_DATE in ODBC 2
    SqlTime2 = 10,
    SqlTimestamp2 = 11,
    SqlVarChar = 12,
    SqlTypeDate = 91,
    SqlTypeTime = 92,
    SqlTypeTimestamp = 93,
};

// Shows the busy pointer for as long as a helper works.
class BusyPointer final
{
public:
    BusyPointer() { MousePointer::busy(); }
    ~BusyPointer() { MousePointer::normal(); }
    BusyPointer(const BusyPointer&) = delete;
    BusyPointer& operator=(const BusyPointer&) = delete;
};

// Turns a "<number> - <description>" text back into the error it came from.
AppError errorFromText(const QString& text)
{
    const qsizetype dash = text.indexOf(QLatin1String(" - "));
    bool ok = false;
    const long number = dash > 0 ? text.left(dash).toLong(&ok) : 0;
    if (!ok)
        return AppError(AppError::DataSource, text);
    return AppError(number, text.mid(dash + 3));
}

AppError queryError(const QSqlQuery& query)
{
    return errorFromText(SourceConnection::errorText(query.lastError()));
}

QStringList joinedAndSplit(const QStringList& items)
{
    if (items.isEmpty())
        return QStringList();
    return items.join(ListSeparator).split(ListSeparator);
}

bool isSqlite(const QSqlDatabase& db)
{
    return db.driverName() == QLatin1String("QSQLITE");
}

QString sqliteQuoted(const QString& name)
{
    QString quoted = name;
    quoted.replace(QLatin1Char('"'), QLatin1String("\"\""));
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

// SQLite keeps its own bookkeeping in tables named sqlite_*; no user table may carry
// that prefix, so it is never one of the user's.
bool isSqliteInternal(const QString& name)
{
    return name.startsWith(QLatin1String("sqlite_"), Qt::CaseInsensitive);
}

// The PostgreSQL and MariaDB drivers list the tables of every schema or database the
// login can see. Keep the ones a statement can name without a qualifier: PostgreSQL's
// schemas on the search path, MariaDB's current database. Other data sources know neither
// query and keep their list as it is.
void keepUnqualifiedTables(const QSqlDatabase& db, QStringList& names)
{
    static const char* const queries[] = {
        "SELECT table_name FROM information_schema.tables WHERE table_type = 'BASE TABLE' "
        "AND table_schema = ANY (current_schemas(false))",
        "SELECT table_name FROM information_schema.tables WHERE table_type = 'BASE TABLE' "
        "AND table_schema = DATABASE()"};
    for (const char* sql : queries) {
        QSqlQuery query(db);
        query.setForwardOnly(true);
        if (!query.exec(QString::fromLatin1(sql)))
            continue;
        QStringList visible;
        while (query.next())
            visible << query.value(0).toString();
        QStringList kept;
        for (const QString& name : names) {
            if (visible.contains(name))
                kept << name;
        }
        names = kept;
        return;
    }
}

QStringList tableNames(const QSqlDatabase& db)
{
    QStringList names;
    for (const QString& name : db.tables(QSql::Tables)) {
        if (!isSqliteInternal(name))
            names << name;
    }
    if (!isSqlite(db))
        keepUnqualifiedTables(db, names);
    return names;
}

// The declared type of each column of a SQLite table, by folded column name.
QHash<QString, QString> sqliteDeclaredTypes(const QSqlDatabase& db, const QString& table)
{
    QHash<QString, QString> types;
    QSqlQuery query(db);
    query.setForwardOnly(true);
    if (query.exec(QStringLiteral("PRAGMA table_info(%1)").arg(sqliteQuoted(table)))) {
        while (query.next())
            types.insert(query.value(1).toString().toCaseFolded(), query.value(2).toString());
    }
    return types;
}

// What Qt's SQLite driver makes of a column whose declared type is unknown to us.
int adoTypeFromMetaType(const QMetaType& type)
{
    switch (type.id()) {
    case QMetaType::Int:
    case QMetaType::LongLong:
        return adInteger;
    case QMetaType::Double:
        return adDouble;
    case QMetaType::Bool:
        return adBoolean;
    case QMetaType::QByteArray:
        return adLongVarBinary;
    case QMetaType::QDate:
        return adDBDate;
    case QMetaType::QTime:
        return adDBTime;
    case QMetaType::QDateTime:
        return adDBTimeStamp;
    default:
        return adVarWChar;
    }
}

// Names and ADO type codes of a statement's result columns; throws AppError.
void statementFields(const QSqlDatabase& db, const QString& sql, QStringList& names,
                     QList<int>& types)
{
    QString refused;
    if (!CheckReadOnlyStatement(sql, refused))
        throw AppError(AppError::DataSource, refused);
    QSqlQuery query(db);
    query.setForwardOnly(true);
    if (!query.exec(sql))
        throw queryError(query);
    const QSqlRecord record = query.record();
    QHash<QString, QHash<QString, QString>> declared; // per table, SQLite only
    for (int i = 0; i < record.count(); ++i) {
        const QSqlField field = record.field(i);
        names << field.name();
        if (isSqlite(db)) {
            // A column taken straight from a table carries that table's declared type.
            const QString table = field.tableName();
            if (!table.isEmpty() && !declared.contains(table))
                declared.insert(table, sqliteDeclaredTypes(db, table));
            const QString type =
                declared.value(table).value(field.name().toCaseFolded(), QString());
            types << (type.isEmpty() ? adoTypeFromMetaType(field.metaType())
                                     : AdoTypeFromSqliteDeclaredType(type));
        } else {
            types << AdoTypeFromOdbcSqlType(field.typeID());
        }
    }
}

void tableFields(const QSqlDatabase& db, const QString& table, QStringList& names,
                 QList<int>& types)
{
    if (isSqlite(db)) {
        QSqlQuery query(db);
        query.setForwardOnly(true);
        if (!query.exec(QStringLiteral("PRAGMA table_info(%1)").arg(sqliteQuoted(table))))
            throw queryError(query);
        while (query.next()) {
            names << query.value(1).toString();
            types << AdoTypeFromSqliteDeclaredType(query.value(2).toString());
        }
        return;
    }
    const QSqlRecord record = db.record(table);
    if (record.isEmpty()) {
        // The driver's column catalogue takes the name as a pattern and may miss it; the
        // columns of an empty result describe the table as well.
        const QString quoted = db.driver()->escapeIdentifier(table, QSqlDriver::TableName);
        statementFields(db, QStringLiteral("SELECT * FROM %1 WHERE 1=0").arg(quoted), names, types);
        return;
    }
    for (int i = 0; i < record.count(); ++i) {
        names << record.field(i).name();
        types << AdoTypeFromOdbcSqlType(record.field(i).typeID());
    }
}

void openOrThrow(SourceConnection& connection, const QString& conString)
{
    QString error;
    if (!connection.open(conString, error))
        throw errorFromText(error);
}

} // namespace

QStringList UserTableNames(const QSqlDatabase& db)
{
    return tableNames(db);
}

bool IsADOInstalled()
{
    return QSqlDatabase::isDriverAvailable(QStringLiteral("QSQLITE")) &&
           QSqlDatabase::isDriverAvailable(QStringLiteral("QODBC"));
}

bool GetTables(QStringList& tables, const QString& conString, QString& message)
{
    BusyPointer busy;
    try {
        QStringList names;
        {
            SourceConnection connection;
            openOrThrow(connection, conString);
            names = tableNames(connection.database());
        }
        // Windows file-based sources named their tables in 8.3 form; there are no short
        // names here (ShortTableName comes back empty), so every name stays long.
        if (names.isEmpty()) {
            message = QStringLiteral("No tables could be found using the database connection "
                                     "specified, modify the database connection and specify "
                                     "more information.");
            return false;
        }
        tables = joinedAndSplit(names);
        return true;
    } catch (const AppError& e) {
        MessageBoxes::instance().critical(QStringLiteral("modADO:GetTables Error ") +
                                          e.numberAndDescription());
    } catch (const std::exception& e) {
        MessageBoxes::instance().critical(QStringLiteral("modADO:GetTables Error ") +
                                          QString::fromUtf8(e.what()));
    }
    return false;
}

QString IdentifierQuote(const QString& conString)
{
    BusyPointer busy;
    SourceConnection connection;
    QString error;
    return connection.open(conString, error) ? connection.identifierQuote() : QString();
}

bool ValidateSQL(const QString& conString, const QString& sql, long& errorNumber, QString& message)
{
    if (!sql.toUpper().contains(QLatin1String("SELECT"))) {
        message = QStringLiteral("The SQL must be a valid SELECT statement.");
        return false;
    }
    BusyPointer busy;
    try {
        QString refused;
        if (!CheckReadOnlyStatement(sql, refused))
            throw AppError(AppError::DataSource, refused);
        SourceConnection connection;
        openOrThrow(connection, conString);
        {
            // The trial run happens inside the connection's transaction, which close()
            // rolls back: a statement that writes leaves no trace.
            QSqlQuery query(connection.database());
            query.setForwardOnly(true);
            if (!query.exec(sql))
                throw queryError(query);
        }
        connection.close();
        return true;
    } catch (const AppError& e) {
        errorNumber = e.number();
        message = e.numberAndDescription();
    } catch (const std::exception& e) {
        errorNumber = AppError::DataSource;
        message = QString::fromUtf8(e.what());
    }
    return false;
}

bool GetFields(const QString& conString, const QString& source, QStringList& names,
               QStringList& types, QString& message)
{
    BusyPointer busy;
    try {
        QStringList fieldNames;
        QList<int> codes;
        {
            SourceConnection connection;
            openOrThrow(connection, conString);
            if (source.toUpper().contains(QLatin1String("SELECT")))
                statementFields(connection.database(), source, fieldNames, codes);
            else
                tableFields(connection.database(), source, fieldNames, codes);
        }
        if (fieldNames.isEmpty()) {
            message = QStringLiteral("No fields could be found for \"%1\".").arg(source);
            return false;
        }
        QStringList typeNames;
        for (int code : codes)
            typeNames << ADOTypeName(static_cast<short>(code));
        names = joinedAndSplit(fieldNames);
        types = joinedAndSplit(typeNames);
        return true;
    } catch (const AppError& e) {
        message = e.numberAndDescription();
    } catch (const std::exception& e) {
        message = QString::fromUtf8(e.what());
    }
    return false;
}

QString ShortTableName(const QString& folder, const QString& tableName)
{
    if (folder.isEmpty())
        return QString();
    const QString sep = folder.endsWith(QLatin1Char('\\')) ? QString() : QStringLiteral("\\");
    const QStringList matches = QDir(NativePath(folder))
                                    .entryList({tableName + QStringLiteral(".*")},
                                               QDir::Files | QDir::Hidden, QDir::Unsorted);
    const QString shortPath = GetShortName(folder + sep + matches.value(0));
    const qsizetype p = shortPath.indexOf(QLatin1Char('.')) + 1; // 1-based, 0 = none
    if (p <= 0)
        return QString();
    // The eight characters before the dot; a shorter base name has none to give.
    if (p - 8 < 1)
        return QString();
    return shortPath.mid(p - 9, 8);
}

QString ADOTypeName(short code)
{
    switch (code) {
    case 131:
    case 4:
    case 16:
    case 17:
    case 20:
    case 21:
    case 2:
    case 18:
    case 14:
    case 3:
    case 19:
    case 5:
        return QStringLiteral("Number");
    case 128:
    case 205:
    case 204:
        return QStringLiteral("Binary");
    case 11:
        return QStringLiteral("Boolean");
    case 129:
    case 200:
    case 8:
    case 201:
    case 203:
    case 202:
    case 130:
        return QStringLiteral("Text");
    case 6:
        return QStringLiteral("Currency");
    case 7:
    case 133:
        return QStringLiteral("Date");
    case 134:
    case 135:
        return QStringLiteral("Time");
    case 132:
        return QStringLiteral("User Defined");
    case 9:
        return QStringLiteral("DBTYPE_IDISPATCH");
    case 72:
        return QStringLiteral("DBTYPE_GUID");
    case 10:
        return QStringLiteral("DBTYPE_ERROR");
    case 0:
        return QStringLiteral("DBTYPE_EMPTY");
    default:
        return QStringLiteral("Unknown - ") + QString::number(code);
    }
}

int AdoTypeFromOdbcSqlType(int odbcSqlType)
{
    // As the OLE DB provider for ODBC maps them.
    switch (odbcSqlType) {
    case SqlChar:
        return adChar;
    case SqlVarChar:
        return adVarChar;
    case SqlLongVarChar:
        return adLongVarChar;
    case SqlWChar:
        return adWChar;
    case SqlWVarChar:
        return adVarWChar;
    case SqlWLongVarChar:
        return adLongVarWChar;
    case SqlNumeric:
    case SqlDecimal:
        return adNumeric;
    case SqlSmallInt:
        return adSmallInt;
    case SqlInteger:
        return adInteger;
    case SqlReal:
        return adSingle;
    case SqlFloat:
    case SqlDouble:
        return adDouble;
    case SqlBit:
        return adBoolean;
    case SqlTinyInt:
        return adUnsignedTinyInt;
    case SqlBigInt:
        return adBigInt;
    case SqlBinary:
        return adBinary;
    case SqlVarBinary:
        return adVarBinary;
    case SqlLongVarBinary:
        return adLongVarBinary;
    case SqlDateTime:
    case SqlTypeDate:
        return adDBDate;
    case SqlTime2:
    case SqlTypeTime:
        return adDBTime;
    case SqlTimestamp2:
    case SqlTypeTimestamp:
        return adDBTimeStamp;
    case SqlGuid:
        return adGUID;
    default:
        return adVariant;
    }
}

int AdoTypeFromSqliteDeclaredType(const QString& declaredType)
{
    // SQLite takes any declared type; read it the way its own affinity rules do, after
    // the names that say more than the affinity.
    const QString t = declaredType.trimmed().toUpper();
    const QString base = t.section(QLatin1Char('('), 0, 0).trimmed();
    if (t.isEmpty())
        return adVarWChar;
    if (base == QLatin1String("BIGINT") || base == QLatin1String("INT8"))
        return adBigInt;
    if (base == QLatin1String("SMALLINT") || base == QLatin1String("INT2"))
        return adSmallInt;
    if (base == QLatin1String("TINYINT"))
        return adUnsignedTinyInt;
    if (t.contains(QLatin1String("BOOL")) || base == QLatin1String("BIT"))
        return adBoolean;
    if (t.contains(QLatin1String("INT")))
        return adInteger;
    if (t.contains(QLatin1String("DATETIME")) || t.contains(QLatin1String("TIMESTAMP")))
        return adDBTimeStamp;
    if (t.contains(QLatin1String("DATE")))
        return adDBDate;
    if (base == QLatin1String("TIME"))
        return adDBTime;
    if (t.contains(QLatin1String("GUID")) || t.contains(QLatin1String("UUID")))
        return adGUID;
    if (t.startsWith(QLatin1String("NCHAR")) || t.startsWith(QLatin1String("NATIONAL CHAR")) ||
        t.startsWith(QLatin1String("NVARCHAR")))
        return adVarWChar;
    if (base == QLatin1String("CHAR") || base == QLatin1String("CHARACTER"))
        return adChar;
    if (t.contains(QLatin1String("CHAR")))
        return adVarChar;
    if (t.contains(QLatin1String("CLOB")) || t.contains(QLatin1String("TEXT")))
        return adLongVarChar;
    if (t.contains(QLatin1String("BLOB")) || t.contains(QLatin1String("BINARY")))
        return adLongVarBinary;
    if (t.contains(QLatin1String("MONEY")) || t.contains(QLatin1String("CURRENCY")))
        return adCurrency;
    if (t.contains(QLatin1String("REAL")) || t.contains(QLatin1String("FLOA")) ||
        t.contains(QLatin1String("DOUB")))
        return adDouble;
    if (t.contains(QLatin1String("DEC")))
        return adDecimal;
    // NUMERIC and every other name: numeric affinity.
    return adNumeric;
}
