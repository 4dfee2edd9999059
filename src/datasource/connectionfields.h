#pragma once

#include <QMetaType>
#include <QString>

// A connection string taken apart into the fields of the connection builder, and put back
// together. Four kinds: a SQLite file, an ODBC data source name, an ODBC driver with its
// server and login, and a raw string for anything the other three cannot represent.
struct ConnectionFields
{
    enum class Kind
    {
        SqliteFile,
        OdbcDataSource,
        OdbcDriver,
        Raw
    };

    Kind kind = Kind::SqliteFile;
    QString file;       // SqliteFile
    QString dataSource; // OdbcDataSource
    QString driver;     // OdbcDriver
    QString server;
    QString port;
    QString database;
    QString user; // OdbcDataSource and OdbcDriver
    QString password;
    QString raw; // Raw: the string as typed

    bool operator==(const ConnectionFields& other) const;
    bool operator!=(const ConnectionFields& other) const { return !(*this == other); }
};

Q_DECLARE_METATYPE(ConnectionFields)

// The fields of conString. An empty string gives an empty SQLite fields; a string holding
// keys the builder has no field for comes back as Raw with the text unchanged. False with
// a message when the string cannot be split into key=value entries at all.
bool ParseConnectionFields(const QString& conString, ConnectionFields& fields, QString& message);

// The connection string of fields, in a form ResolveConnectionString understands and that
// ParseConnectionFields turns back into the same fields. Empty fields are left out.
QString ComposeConnectionString(const ConnectionFields& fields);
