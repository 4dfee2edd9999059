#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>

// Builds a real SQLite database file by running the statements in order through the
// SQLite C API, outside Qt SQL, so the fixture never shares a connection with the code
// under test. Returns an empty string on success, else the failing statement and error.
QString BuildSqliteDatabase(const QString& file, const QStringList& statements);

// Runs one query on the file (read-only) and returns the first column of every row, as
// text; "<error>" and the message when the query fails. Lets a test look at a database
// without going through the code it tests.
QStringList SqliteColumn(const QString& file, const QString& query);

// A sample "Customers" table (three rows, one named 'SELECT'), an "Order Lines" table
// with blanks in its names, and what must never be listed as a table: a view, an index
// and SQLite's own sqlite_sequence (from AUTOINCREMENT).
QStringList SampleCustomerStatements();
