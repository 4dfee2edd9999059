#include "sqlitefixture.h"

#include <QFile>

#include <sqlite3.h>

namespace {

sqlite3* openDatabase(const QString& file, int flags, QString& error)
{
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(QFile::encodeName(file).constData(), &db, flags, nullptr) != SQLITE_OK) {
        error = QStringLiteral("cannot open %1: %2").arg(file, QString::fromUtf8(sqlite3_errmsg(db)));
        sqlite3_close(db);
        return nullptr;
    }
    return db;
}

} // namespace

QString BuildSqliteDatabase(const QString& file, const QStringList& statements)
{
    QString result;
    sqlite3* db = openDatabase(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, result);
    for (int i = 0; db && result.isEmpty() && i < statements.size(); ++i) {
        char* error = nullptr;
        if (sqlite3_exec(db, statements.at(i).toUtf8().constData(), nullptr, nullptr, &error) !=
            SQLITE_OK)
            result = statements.at(i) + QStringLiteral(": ") + QString::fromUtf8(error);
        sqlite3_free(error);
    }
    sqlite3_close(db);
    return result;
}

QStringList SqliteColumn(const QString& file, const QString& query)
{
    QString error;
    sqlite3* db = openDatabase(file, SQLITE_OPEN_READONLY, error);
    if (!db)
        return {QStringLiteral("<error>"), error};
    QStringList values;
    sqlite3_stmt* stmt = nullptr;
    int rc = sqlite3_prepare_v2(db, query.toUtf8().constData(), -1, &stmt, nullptr);
    while (rc == SQLITE_OK && (rc = sqlite3_step(stmt)) == SQLITE_ROW) {
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
        values << (text ? QString::fromUtf8(text) : QString());
        rc = SQLITE_OK;
    }
    if (rc != SQLITE_DONE)
        values << QStringLiteral("<error>") << QString::fromUtf8(sqlite3_errmsg(db));
    sqlite3_finalize(stmt);
    sqlite3_close(db);
    return values;
}

QStringList SampleCustomerStatements()
{
    return {
        "CREATE TABLE Customers (ID INTEGER PRIMARY KEY AUTOINCREMENT, Name VARCHAR(50), "
        "Email TEXT, Balance NUMERIC(10,2), Joined DATE, LastSeen TIMESTAMP, Active BOOLEAN, "
        "Photo BLOB)",
        "INSERT INTO Customers (Name, Email, Balance, Joined, LastSeen, Active) VALUES "
        "('Ann Smith', 'ann@example.com', 12.5, '2020-01-31', '2021-02-03 04:05:06', 1), "
        "('SELECT', 'select@example.com', 0, '2019-12-01', '2019-12-01 00:00:00', 0), "
        "('Bob Jones', 'bob@example.com', -3, '2018-06-15', '2018-06-15 12:00:00', 1)",
        "CREATE TABLE \"Order Lines\" (\"Line No\" INTEGER, Item TEXT)",
        "CREATE VIEW ActiveCustomers AS SELECT * FROM Customers WHERE Active",
        "CREATE INDEX CustomersByName ON Customers (Name)",
    };
}
