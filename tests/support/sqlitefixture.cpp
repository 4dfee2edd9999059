#include "sqlitefixture.h"

#include <QFile>

#include <sqlite3.h>

QString BuildSqliteDatabase(const QString& file, const QStringList& statements)
{
    sqlite3* db = nullptr;
    const QByteArray name = QFile::encodeName(file);
    if (sqlite3_open_v2(name.constData(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                        nullptr) != SQLITE_OK) {
        const QString error = QString::fromUtf8(sqlite3_errmsg(db));
        sqlite3_close(db);
        return QStringLiteral("cannot open %1: %2").arg(file, error);
    }
    QString result;
    for (const QString& statement : statements) {
        char* error = nullptr;
        if (sqlite3_exec(db, statement.toUtf8().constData(), nullptr, nullptr, &error) !=
            SQLITE_OK) {
            result = QStringLiteral("%1: %2").arg(statement, QString::fromUtf8(error));
            sqlite3_free(error);
            break;
        }
    }
    sqlite3_close(db);
    return result;
}

QStringList SqliteColumn(const QString& file, const QString& query)
{
    QStringList values;
    sqlite3* db = nullptr;
    const QByteArray name = QFile::encodeName(file);
    if (sqlite3_open_v2(name.constData(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        values << QStringLiteral("<error>") << QString::fromUtf8(sqlite3_errmsg(db));
        sqlite3_close(db);
        return values;
    }
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db, query.toUtf8().constData(), -1, &stmt, nullptr) != SQLITE_OK) {
        values << QStringLiteral("<error>") << QString::fromUtf8(sqlite3_errmsg(db));
        sqlite3_close(db);
        return values;
    }
    int rc;
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
        values << (text ? QString::fromUtf8(text) : QString());
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
        QStringLiteral(
            "CREATE TABLE Customers (ID INTEGER PRIMARY KEY AUTOINCREMENT, Name VARCHAR(50), "
            "Email TEXT, Balance NUMERIC(10,2), Joined DATE, LastSeen TIMESTAMP, "
            "Active BOOLEAN, Photo BLOB)"),
        QStringLiteral("INSERT INTO Customers (Name, Email, Balance, Joined, LastSeen, Active) "
                       "VALUES ('Ann Smith', 'ann@example.com', 12.5, '2020-01-31', "
                       "'2021-02-03 04:05:06', 1)"),
        QStringLiteral("INSERT INTO Customers (Name, Email, Balance, Joined, LastSeen, Active) "
                       "VALUES ('SELECT', 'select@example.com', 0, '2019-12-01', "
                       "'2019-12-01 00:00:00', 0)"),
        QStringLiteral("INSERT INTO Customers (Name, Email, Balance, Joined, LastSeen, Active) "
                       "VALUES ('Bob Jones', 'bob@example.com', -3, '2018-06-15', "
                       "'2018-06-15 12:00:00', 1)"),
        QStringLiteral("CREATE TABLE \"Order Lines\" (\"Line No\" INTEGER, Item TEXT)"),
        QStringLiteral("CREATE VIEW ActiveCustomers AS SELECT * FROM Customers WHERE Active"),
        QStringLiteral("CREATE INDEX CustomersByName ON Customers (Name)"),
    };
}
