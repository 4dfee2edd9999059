#pragma once

#include "testserver.h"

// The server scripts/pg-test-server.sh starts.
struct PgTraits
{
    static constexpr const char* prefix = "PG";
    static constexpr const char* product = "PostgreSQL";
};
using PgTestServer = TestServer<PgTraits>;
using PgTestDatabase = TestDatabase<PgTraits>;

// SampleCustomerStatements() in PostgreSQL's own types (unquoted names fold to lower case).
QStringList PgSampleCustomerStatements();
