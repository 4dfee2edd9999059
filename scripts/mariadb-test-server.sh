#!/usr/bin/env bash
# A throw-away MariaDB server for the ODBC tests. Source this file, then:
#
#   mariadb_test_server_start   # a fresh data folder in a temporary folder, the server on a
#                               # free 127.0.0.1 port, a test user and database, and
#                               # DBIMPORT_TEST_MARIADB_HOST/PORT/DB/USER/PASSWORD exported
#   mariadb_test_server_stop    # stop the server and delete the folder
#
# Nothing outside the temporary folder is touched: no option files are read (--no-defaults),
# the system's server and its socket are left alone. When run as root the server runs as
# the "mysql" user. Works without a terminal (CI).

mariadb_test_server_start() {
    local dir password port attempt started=0 owner=""
    dir=$(mktemp -d "${TMPDIR:-/tmp}/dbimport-mariadb-XXXXXX") || return 1
    MARIADB_TEST_SERVER_DIR=$dir
    if [ "$(id -u)" -eq 0 ]; then
        owner=mysql
        chown "$owner": "$dir"
    fi
    chmod 700 "$dir"
    password=$(od -An -N12 -tx1 /dev/urandom | tr -d ' \n')

    if ! mariadb-install-db --no-defaults ${owner:+--user=$owner} --datadir="$dir/data" \
        --auth-root-authentication-method=normal --skip-test-db >"$dir/install.log" 2>&1; then
        echo "mariadb-test-server: creating the data folder failed:" >&2
        cat "$dir/install.log" >&2
        return 1
    fi

    # A port that is free now may be taken by the time the server binds it, so try a few.
    for attempt in 1 2 3 4 5 6 7 8 9 10; do
        port=$((20000 + (RANDOM * 32768 + RANDOM) % 40000))
        mariadbd --no-defaults ${owner:+--user=$owner} --datadir="$dir/data" \
            --socket="$dir/mysqld.sock" --pid-file="$dir/mysqld.pid" --port="$port" \
            --bind-address=127.0.0.1 --skip-name-resolve --innodb-buffer-pool-size=16M \
            --innodb-log-file-size=8M --log-error="$dir/server.log" &
        MARIADB_TEST_SERVER_PID=$!
        local wait
        for wait in $(seq 1 150); do
            if mariadb --no-defaults --socket="$dir/mysqld.sock" -uroot -e "SELECT 1" \
                >/dev/null 2>&1; then
                started=1
                break
            fi
            kill -0 "$MARIADB_TEST_SERVER_PID" 2>/dev/null || break
            sleep 0.2
        done
        [ "$started" -eq 1 ] && break
        kill "$MARIADB_TEST_SERVER_PID" 2>/dev/null || true
        wait "$MARIADB_TEST_SERVER_PID" 2>/dev/null || true
        echo "mariadb-test-server: start on port $port failed (attempt $attempt), retrying" >&2
    done
    if [ "$started" -ne 1 ]; then
        echo "mariadb-test-server: could not start the server:" >&2
        cat "$dir/server.log" >&2 || true
        return 1
    fi

    local user=dbimport_test db=dbimport_test
    if ! mariadb --no-defaults --socket="$dir/mysqld.sock" -uroot -e \
        "CREATE DATABASE $db; CREATE USER '$user'@'127.0.0.1' IDENTIFIED BY '$password';
         GRANT ALL ON *.* TO '$user'@'127.0.0.1';" >"$dir/setup.log" 2>&1; then
        echo "mariadb-test-server: creating the test user and database failed:" >&2
        cat "$dir/setup.log" >&2
        mariadb_test_server_stop
        return 1
    fi

    export DBIMPORT_TEST_MARIADB_HOST=127.0.0.1
    export DBIMPORT_TEST_MARIADB_PORT=$port
    export DBIMPORT_TEST_MARIADB_DB=$db
    export DBIMPORT_TEST_MARIADB_USER=$user
    export DBIMPORT_TEST_MARIADB_PASSWORD=$password
    echo "mariadb-test-server: MariaDB running on 127.0.0.1:$port (folder $dir)"
}

mariadb_test_server_stop() {
    local dir=${MARIADB_TEST_SERVER_DIR:-} pid=${MARIADB_TEST_SERVER_PID:-}
    [ -n "$dir" ] || return 0
    if [ -n "$pid" ]; then
        kill "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    fi
    rm -rf "$dir"
    unset MARIADB_TEST_SERVER_DIR MARIADB_TEST_SERVER_PID DBIMPORT_TEST_MARIADB_HOST \
        DBIMPORT_TEST_MARIADB_PORT DBIMPORT_TEST_MARIADB_DB DBIMPORT_TEST_MARIADB_USER \
        DBIMPORT_TEST_MARIADB_PASSWORD
    return 0
}
