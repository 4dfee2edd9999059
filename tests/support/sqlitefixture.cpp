#include "sqlitefixture.h"

#include <QFile>

#include <sqlite3.h>

// Runs the statements in order; the first column of every result row goes to *column.
static QString run(const QString& file, int flags, const QStringList& statements,
                   QStringList* column = nullptr)
{
    sqlite3* db = nullptr;
    QString error;
    if (sqlite3_open_v2(QFile::encodeName(file).constData(), &db, flags, nullptr) != SQLITE_OK)
        error = "cannot open " + file + ": " + QString::fromUtf8(sqlite3_errmsg(db));
    const auto firstColumn = [](void* list, int, char** row, char**) {
        static_cast<QStringList*>(list)->append(QString::fromUtf8(row[0]));
        return 0;
    };
    for (int i = 0; error.isEmpty() && i < statements.size(); ++i) {
        char* message = nullptr;
        if (sqlite3_exec(db, statements.at(i).toUtf8().constData(), column ? +firstColumn : nullptr,
                         column, &message))
            error = statements.at(i) + ": " + QString::fromUtf8(message);
        sqlite3_free(message);
    }
    sqlite3_close(db);
    return error;
}

QString BuildSqliteDatabase(const QString& file, const QStringList& statements)
{
    return run(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, statements);
}

QStringList SqliteColumn(const QString& file, const QString& query)
{
    QStringList values;
    const QString error = run(file, SQLITE_OPEN_READONLY, {query}, &values);
    return error.isEmpty() ? values : QStringList{"<error>", error};
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
        "CREATE INDEX CustomersByName ON Customers (Name)"};
}
