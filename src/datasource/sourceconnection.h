#pragma once

#include <QSqlDatabase>
#include <QString>

// A read-only connection to a user's data source under its own unique Qt SQL connection
// name. Where the server has a read-only mode, the session and its transaction are put in
// it; everything sent through the connection runs inside a transaction that close() (or
// the destructor) rolls back. Statements from the user pass CheckReadOnlyStatement
// (readonlyguard.h) before they are sent. Queries made on database() must be destroyed
// before close().
class SourceConnection final
{
public:
    SourceConnection();
    ~SourceConnection();
    SourceConnection(const SourceConnection&) = delete;
    SourceConnection& operator=(const SourceConnection&) = delete;

    // False with errorText set ("<number> - <description>") when the string cannot be
    // resolved or the data source refuses the connection.
    bool open(const QString& conString, QString& errorText);
    bool isOpen() const;
    QSqlDatabase database() const;
    void close();

    // The character that quotes a table or column name for this source, as its driver
    // reports it; empty when the source takes names in brackets ("[Order Lines]").
    QString identifierQuote() const { return m_quote; }
    // The server's name for itself (SQL_DBMS_NAME, "PostgreSQL", "SQLite"...); empty for
    // SQLite files opened directly.
    QString dbmsName() const { return m_dbms; }
    // True once the server itself has confirmed that this connection's transaction is
    // read-only, so that it refuses anything with a side effect (PostgreSQL).
    bool serverReadOnly() const { return m_serverReadOnly; }

    // "<number> - <description>" for a driver error, the number trimmed.
    static QString errorText(const class QSqlError& error);

private:
    bool makeReadOnly(QSqlDatabase& db, bool inTransaction, QString& errorText);

    QString m_name;
    QString m_dbms; // the server's own name for itself, ODBC sources only
    QString m_quote;
    bool m_inTransaction = false;
    bool m_serverReadOnly = false;
};
