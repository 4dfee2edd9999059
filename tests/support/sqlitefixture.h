#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>

// Real SQLite files through the SQLite C API, outside Qt SQL, so a fixture never shares a
// connection with the code under test. Empty, or the failing statement and the error.
QString BuildSqliteDatabase(const QString& file, const QStringList& statements);
// First column of every row (the file opened read-only) as text; "<error>" and the message.
QStringList SqliteColumn(const QString& file, const QString& query);

// "Customers" (three rows, one named 'SELECT'), "Order Lines" with blanks in its names, and
// what is never listed as a table: a view, an index and sqlite_sequence (from AUTOINCREMENT).
QStringList SampleCustomerStatements();
