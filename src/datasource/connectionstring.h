#pragma once

#include <QList>
#include <QPair>
#include <QString>

// ADO-style connection strings ("key=value;" lists) and the Qt SQL driver they resolve to.
struct ConnectionTarget
{
    QString driver;         // "QSQLITE" or "QODBC"
    QString databaseName;   // the SQLite file (native path) or the ODBC connection string
    QString connectOptions; // Qt connect options, e.g. "QSQLITE_OPEN_READONLY"
    uint loginTimeout = 0;  // ODBC: the seconds a login may wait for the server; 0 for ever
};

// Splits the string into its pairs, keys trimmed, values unwrapped from {} or quotes.
// False with a message for unbalanced braces or quotes or a pair without a key.
bool ParseConnectionString(const QString& conString, QList<QPair<QString, QString>>& pairs,
                           QString& message);

// Resolves the string to a driver: Provider=SQLite (the file must exist; it is never
// created), Provider=MSDASQL, or any string holding DSN= or Driver=. False with a clear
// message for anything else.
bool ResolveConnectionString(const QString& conString, ConnectionTarget& target, QString& message);

// Qt's ODBC driver puts "DSN=" in front of a database name that holds neither "DRIVER="
// nor "SERVER=". Returns the name to give QSqlDatabase::setDatabaseName so that the
// driver manager receives odbcString itself.
QString QtOdbcDatabaseName(const QString& odbcString);

// The string as the program shows it: the value of every Pwd= or Password= entry replaced
// by "•••", everything else as typed. A string that cannot be split still has whatever
// follows a password key up to the next ';' hidden.
QString MaskPasswords(const QString& conString);

// A value as it must be written after "key=" so that ParseConnectionString gives it back:
// in braces, with '}' doubled, when it holds ';', '=', a brace, starts with a quote or has
// blanks at either end.
QString ConnectionStringValue(const QString& value);
