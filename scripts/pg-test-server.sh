#!/usr/bin/env bash
# A throw-away PostgreSQL 15 server for the ODBC tests. Source this file, then:
#
#   pg_test_server_start   # initdb in a fresh temporary folder, start on a free
#                          # 127.0.0.1 port, create a test role and database, export
#                          # DBIMPORT_TEST_PG_HOST/PORT/DB/USER/PASSWORD
#   pg_test_server_stop    # stop the server and delete the folder
#
# Nothing outside the temporary folder is touched: no system cluster, no pg_hba.conf of
# the machine. When run as root the server runs as the "postgres" user, since PostgreSQL
# refuses to run as root. Works without a terminal (CI).

pg_test_server_bindir() {
    local dir
    for dir in "${PG_TEST_SERVER_BINDIR:-}" /usr/lib/postgresql/15/bin; do
        if [ -n "$dir" ] && [ -x "$dir/initdb" ] && [ -x "$dir/pg_ctl" ]; then
            echo "$dir"
            return 0
        fi
    done
    echo "pg-test-server: PostgreSQL 15 server programs not found (initdb, pg_ctl)" >&2
    return 1
}

# Runs a command as the server's owner.
pg_test_server_as_owner() {
    if [ "$(id -u)" -eq 0 ]; then
        (cd / && runuser -u postgres -- "$@")
    else
        "$@"
    fi
}

pg_test_server_start() {
    local bindir dir password port attempt started=0
    bindir=$(pg_test_server_bindir) || return 1

    dir=$(mktemp -d "${TMPDIR:-/tmp}/dbimport-pg-XXXXXX") || return 1
    PG_TEST_SERVER_DIR=$dir
    if [ "$(id -u)" -eq 0 ]; then
        if ! id postgres >/dev/null 2>&1; then
            echo "pg-test-server: running as root but there is no postgres user" >&2
            return 1
        fi
        chown postgres: "$dir"
    fi
    chmod 700 "$dir"

    password=$(od -An -N12 -tx1 /dev/urandom | tr -d ' \n')

    # Local (socket) connections are trusted for the set-up below; TCP needs the password.
    if ! pg_test_server_as_owner "$bindir/initdb" -D "$dir/data" -U postgres \
        --auth-local=trust --auth-host=scram-sha-256 --encoding=UTF8 --locale=C.UTF-8 \
        >"$dir/initdb.log" 2>&1; then
        echo "pg-test-server: initdb failed:" >&2
        cat "$dir/initdb.log" >&2
        return 1
    fi

    # A port that is free now may be taken by the time the server binds it, so try a few.
    for attempt in 1 2 3 4 5 6 7 8 9 10; do
        port=$((20000 + (RANDOM * 32768 + RANDOM) % 40000))
        if pg_test_server_as_owner "$bindir/pg_ctl" -D "$dir/data" -l "$dir/server.log" -w \
            -t 60 -o "-c listen_addresses=127.0.0.1 -c port=$port \
-c unix_socket_directories=$dir -c fsync=off -c max_connections=100" \
            start >/dev/null 2>&1; then
            started=1
            break
        fi
        echo "pg-test-server: start on port $port failed (attempt $attempt), retrying" >&2
    done
    if [ "$started" -ne 1 ]; then
        echo "pg-test-server: could not start the server:" >&2
        cat "$dir/server.log" >&2 || true
        return 1
    fi

    local user=dbimport_test db=dbimport_test
    if ! pg_test_server_as_owner "$bindir/psql" -X -q -v ON_ERROR_STOP=1 -h "$dir" -p "$port" \
        -U postgres -d postgres \
        -c "CREATE ROLE $user LOGIN CREATEDB PASSWORD '$password'" \
        -c "CREATE DATABASE $db OWNER $user" </dev/null >"$dir/setup.log" 2>&1; then
        echo "pg-test-server: creating the test role and database failed:" >&2
        cat "$dir/setup.log" >&2
        pg_test_server_stop
        return 1
    fi

    export DBIMPORT_TEST_PG_HOST=127.0.0.1
    export DBIMPORT_TEST_PG_PORT=$port
    export DBIMPORT_TEST_PG_DB=$db
    export DBIMPORT_TEST_PG_USER=$user
    export DBIMPORT_TEST_PG_PASSWORD=$password
    echo "pg-test-server: PostgreSQL running on 127.0.0.1:$port (folder $dir)"
}

pg_test_server_stop() {
    local dir=${PG_TEST_SERVER_DIR:-} bindir
    [ -n "$dir" ] || return 0
    if [ -d "$dir/data" ] && bindir=$(pg_test_server_bindir 2>/dev/null); then
        pg_test_server_as_owner "$bindir/pg_ctl" -D "$dir/data" -m immediate -w stop \
            >/dev/null 2>&1 || true
    fi
    rm -rf "$dir"
    unset PG_TEST_SERVER_DIR DBIMPORT_TEST_PG_HOST DBIMPORT_TEST_PG_PORT DBIMPORT_TEST_PG_DB \
        DBIMPORT_TEST_PG_USER DBIMPORT_TEST_PG_PASSWORD
    return 0
}
