#pragma once

#include <QString>

#include <memory>

#include "sourcerows.h"

// A big read from PostgreSQL through the server's own COPY protocol (libpq) instead of the
// ODBC driver's row-by-row fetch, which costs several times the rest of an import. Used
// only behind a connection string for the PostgreSQL ODBC driver (named directly or through
// its data source), with the same guard as every other read: a read-only transaction that
// is never committed. Every value comes as the same text the driver's would.
namespace PgCopyRows {

// Whether the COPY route pays for a source of this many rows (-1: unknown).
bool pays(qint64 rowCount);

// The rows of sql, or null when this route does not apply: the string is not for the
// PostgreSQL driver, the server cannot be reached this way, the statement is not a single
// query, or one of its columns has a type whose text is not known to be the driver's. The
// caller then reads through the ODBC connection as always, which reports any error.
std::unique_ptr<SourceRows> open(const QString& conString, const QString& sql);

} // namespace PgCopyRows
