#pragma once

#include <QString>

#include <memory>

#include "sourcerows.h"

// A big read from MariaDB (or MySQL behind MariaDB's ODBC driver) through the client library
// itself, streamed row by row. The ODBC driver keeps a statement's whole result in memory
// and Qt's value fetching is slow for text; this route keeps memory flat. Used only behind a
// connection string for MariaDB's ODBC driver (named directly or through its data source),
// with the same guard as every other read: a read-only session and transaction that is never
// committed. Every value comes as the same text the driver's would.
namespace MariaDbRows {

// Whether the streamed route pays for a source of this many rows (-1: unknown).
bool pays(qint64 rowCount);

// The rows of sql, or null when this route does not apply: the string is not for MariaDB's
// driver or has settings this route does not know, the server cannot be reached this way,
// the statement is not a single query without parameters, or one of its columns has a type
// whose text is not known to be the driver's. The caller then reads through the ODBC
// connection as always, which reports any error.
std::unique_ptr<SourceRows> open(const QString& conString, const QString& sql);

} // namespace MariaDbRows
