#pragma once

#include <QString>
#include <QStringList>

// What the program asks of a data source apart from importing. Each helper opens its own
// connection, shows the busy pointer while it works and closes what it opened.

// True when the Qt SQL drivers QSQLITE and QODBC can be loaded.
bool IsADOInstalled();

class QSqlDatabase;

// The user tables of an open connection, as GetTables lists them.
QStringList UserTableNames(const QSqlDatabase& db);

bool GetTables(QStringList& tables, const QString& conString, QString& message);
bool ValidateSQL(const QString& conString, const QString& sql, long& errorNumber, QString& message);
// source: a table name, or SQL text when it contains "SELECT" (any case).
bool GetFields(const QString& conString, const QString& source, QStringList& names,
               QStringList& types, QString& message);
// The character the source quotes table and field names with when it does not take them
// in brackets (SourceConnection::identifierQuote); empty for bracket sources and when the
// source cannot be reached (the check that follows then reports why).
QString IdentifierQuote(const QString& conString);
QString ShortTableName(const QString& folder, const QString& tableName);
QString ADOTypeName(short code);

// ADO DataTypeEnum codes for a column's type as the drivers describe it.
int AdoTypeFromOdbcSqlType(int odbcSqlType);
int AdoTypeFromSqliteDeclaredType(const QString& declaredType);
