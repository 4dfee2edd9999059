#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>

// Builds a real SQLite database file through the SQLite C API, outside Qt SQL, so the
// fixture never shares a connection with the code under test. Empty on success, else the
// failing statement and the error.
QString BuildSqliteDatabase(const QString& file, const QStringList& statements);

// The first column of every row of a query on the file (opened read-only), as text;
// "<error>" and the message when the query fails.
QStringList SqliteColumn(const QString& file, const QString& query);

// A sample "Customers" table (three rows, one named 'SELECT'), an "Order Lines" table
// with blanks in its names, and what must never be listed as a table: a view, an index
// and SQLite's own sqlite_sequence (from AUTOINCREMENT).
QStringList SampleCustomerStatements();
