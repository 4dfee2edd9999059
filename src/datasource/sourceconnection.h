#pragma once

#include <QSqlDatabase>
#include <QString>

// A read-only connection to a user's data source under its own unique Qt SQL connection
// name. Everything sent through it runs inside a transaction that close() (or the
// destructor) rolls back, so nothing can change the user's database even when a
// hand-written statement is not a SELECT. Queries made on database() must be destroyed
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

    // "<number> - <description>" for a driver error, the number trimmed.
    static QString errorText(const class QSqlError& error);

private:
    QString m_name;
    bool m_inTransaction = false;
};
