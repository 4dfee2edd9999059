#pragma once

#include "testserver.h"

// The server scripts/mariadb-test-server.sh starts.
struct MariaDbTraits
{
    static constexpr const char* prefix = "MARIADB";
    static constexpr const char* product = "MariaDB";
};
using MariaDbTestServer = TestServer<MariaDbTraits>;
using MariaDbTestDatabase = TestDatabase<MariaDbTraits>;

#define DBIMPORT_REQUIRE_MARIADB(server) DBIMPORT_REQUIRE_SERVER(MariaDbTestServer, server)
