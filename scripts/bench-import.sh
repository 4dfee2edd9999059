#!/usr/bin/env bash
# The import benchmark: builds a Release tree, generates sources with dbimport-gensource and
# prints, for dbimport-cli, every figure against a reference measured in the same run:
#   1. 1,000,000 rows from SQLite into a new Group, against sqlite3's own INSERT INTO ...
#      SELECT of the same rows into a Group-shaped table with the same NOCASE e-mail index
#      (target: ratio <= 1.0), narrow (5 mapped columns) and wide (every Group field);
#   2. the same rows from PostgreSQL 15 through the ODBC driver, against psql's \copy piped
#      into sqlite3's .import and INSERT ... SELECT with the index (target <= 1.0), and the
#      peak resident memory for 1,000,000 and 3,000,000 rows (target <= 300 MB, flat);
#   3. --replace of the same rows into the now full Group against the add (target <= 1.2),
#      once unchanged and once with two columns changed in every row; 100,000 against
#      1,000,000 rows (target <= 11); 1,000,000 rows into a Group already holding 1,000,000
#      against the same into an empty one (target <= 1.3), and its peak memory.
# Each time is the best of REPEAT runs (default 3), the set-up (a fresh or restored Group,
# a fresh reference table) redone before each, since other work on the machine only ever
# adds time; memory is the highest of the runs.
# Options through the environment: BUILD_DIR, WORK_DIR (default: a temporary folder), ROWS,
# REPEAT, PG_ROWS_BIG (default 3 x ROWS; 0 skips that run), NO_PG=1 (skips 2.).
# Figures only: nothing here passes or fails a build.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
build=${BUILD_DIR:-build-bench-import}
rows=${ROWS:-1000000}
small=$((rows / 10))
pg_big=${PG_ROWS_BIG:-$((rows * 3))}
repeat=${REPEAT:-3}

command -v sqlite3 >/dev/null || { echo "bench-import: needs the sqlite3 program (scripts/setup.sh)" >&2; exit 1; }
[ -x /usr/bin/time ] || { echo "bench-import: needs /usr/bin/time (Debian package time, scripts/setup.sh)" >&2; exit 1; }

cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" -j2 --target dbimport-cli dbimport-gensource dbimport-bench-makeini >/dev/null
bin="$root/$build/bin"

work=${WORK_DIR:-$(mktemp -d "${TMPDIR:-/tmp}/dbimport-bench-XXXXXX")}
cleanup() {
    if [ -n "${PG_TEST_SERVER_DIR:-}" ]; then pg_test_server_stop >/dev/null 2>&1 || true; fi
    [ -n "${WORK_DIR:-}" ] || rm -rf "$work"
}
trap cleanup EXIT
mkdir -p "$work/data"
data="$work/data"
ini="$work/dbimport.ini"
rm -f "$ini"

echo "Generating sources ($rows and $small rows) ..."
"$bin/dbimport-gensource" "$work/big.db" "$rows" --seed 1 >/dev/null
"$bin/dbimport-gensource" "$work/other.db" "$rows" --seed 2 >/dev/null
"$bin/dbimport-gensource" "$work/small.db" "$small" --seed 3 >/dev/null
rm -f "$data"/*.gdb "$data"/*.gdb-journal
# The same people with a changed city and telephone, for a replace that rewrites every row.
cp "$work/big.db" "$work/changed.db"
sqlite3 "$work/changed.db" "UPDATE Contacts SET City = upper(City), Telephone = Telephone || '9';"

"$bin/dbimport-bench-makeini" "$ini" Narrow "$work/big.db" Narrow narrow
"$bin/dbimport-bench-makeini" "$ini" Big "$work/big.db" New wide
"$bin/dbimport-bench-makeini" "$ini" Other "$work/other.db" Full wide
"$bin/dbimport-bench-makeini" "$ini" Empty "$work/other.db" Empty wide
"$bin/dbimport-bench-makeini" "$ini" Small "$work/small.db" Small wide
"$bin/dbimport-bench-makeini" "$ini" Changed "$work/changed.db" New wide

# seconds (wall) and peak resident kB of one command, into the named variables, and the
# processor seconds (user + system, children included) into <seconds variable>_cpu
measure() {
    local secs_var=$1 kb_var=$2
    shift 2
    local stats="$work/time.txt"
    /usr/bin/time -f '%e %M %U %S' -o "$stats" "$@" >"$work/last.out" 2>"$work/last.err" || {
        echo "bench-import: command failed: $*" >&2
        cat "$work/last.err" >&2
        exit 1
    }
    local user sys
    read -r "$secs_var" "$kb_var" user sys <"$stats"
    printf -v "${secs_var}_cpu" '%s' "$(awk -v u="$user" -v s="$sys" 'BEGIN { printf "%.2f", u + s }')"
}

# best SECS_VAR KB_VAR SETUP COMMAND...: SETUP (a shell command) then COMMAND, REPEAT times;
# the shortest wall time (with its processor time) and the highest memory are kept. The
# output of the last run stays in $work/last.out.
best() {
    local secs_var=$1 kb_var=$2 setup=$3
    shift 3
    local best_s="" best_cpu="" most_kb=0 i s kb
    for ((i = 0; i < repeat; i++)); do
        eval "$setup"
        measure s kb "$@"
        if [ -z "$best_s" ] || awk -v a="$s" -v b="$best_s" 'BEGIN { exit !(a < b) }'; then
            best_s=$s
            best_cpu=$s_cpu
        fi
        [ "$kb" -gt "$most_kb" ] && most_kb=$kb
    done
    printf -v "$secs_var" '%s' "$best_s"
    printf -v "${secs_var}_cpu" '%s' "$best_cpu"
    printf -v "$kb_var" '%s' "$most_kb"
}

cli=("$bin/dbimport-cli" --data-folder "$data" --ini "$ini" --quiet)
group() { "$bin/dbimport-cli" --data-folder "$data" --create-group "$1" >/dev/null 2>&1; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b > 0) printf "%.2f", a / b; else print "n/a" }'; }
added() { grep -o 'Recipients Added : [0-9]*' "$work/last.out" | grep -o '[0-9]*$'; }

columns="Title TEXT, FirstName TEXT, LastName TEXT, EmailAddress TEXT, Initial TEXT, Address1 TEXT, Address2 TEXT, City TEXT, State TEXT, Zip TEXT, Country TEXT, Company TEXT, JobTitle TEXT, WEB TEXT, Telephone TEXT, FAX TEXT, Field1 TEXT, Field2 TEXT, Field3 TEXT, Field4 TEXT, DateAdded TEXT"
wide_to="Title, FirstName, LastName, EmailAddress, Initial, Address1, Address2, City, State, Zip, Country, Company, JobTitle, WEB, Telephone, FAX, Field1, Field2, Field3, Field4, DateAdded"
wide_from="Title, FirstName, LastName, trim(Email), Initial, Address1, Address2, City, State, Zip, Country, Company, JobTitle, Web, Telephone, Fax, Notes, Joined, Score, Active, date('now')"
narrow_to="FirstName, LastName, EmailAddress, City, Telephone, DateAdded"
narrow_from="FirstName, LastName, trim(Email), City, Telephone, date('now')"
# An empty Group-shaped database with the e-mail index, as a new Group is.
reference_db() {
    rm -f "$1"
    sqlite3 "$1" "CREATE TABLE Recipients ($columns); CREATE INDEX RecipientsEmailAddress ON Recipients (EmailAddress COLLATE NOCASE);"
}
# sqlite3's own copy of table Contacts of a source file into a fresh reference database:
# the statements go to $work/NAME.sql; reference_sql NAME SOURCE TO FROM
reference_sql() {
    printf "ATTACH '%s' AS source;\nINSERT INTO Recipients (%s) SELECT %s FROM source.Contacts;\n" \
        "$2" "$3" "$4" >"$work/$1.sql"
}
reference_sql narrow "$work/big.db" "$narrow_to" "$narrow_from"
reference_sql wide "$work/big.db" "$wide_to" "$wide_from"
reference_sql small "$work/small.db" "$wide_to" "$wide_from"
fresh() { rm -f "$data/$1.gdb" "$data/$1.gdb-journal"; group "$1"; }
restore() { cp "$work/$1.gdb" "$data/$2.gdb"; rm -f "$data/$2.gdb-journal"; }

# 1. a new Group against sqlite3's own copy, narrow and wide rows
best t_narrow m_narrow "fresh Narrow" "${cli[@]}" --connection Narrow --no-replace
added_narrow=$(added)
best t_sqlite_narrow unused 'reference_db "$work/ref.db"' sqlite3 "$work/ref.db" ".read $work/narrow.sql"
best t_add m_add "fresh New" "${cli[@]}" --connection Big --no-replace
added_wide=$(added)
cp "$data/New.gdb" "$work/New.gdb"
best t_sqlite unused 'reference_db "$work/ref.db"' sqlite3 "$work/ref.db" ".read $work/wide.sql"
# the same copy of the small source, to see how SQLite itself scales
best t_sqlite_small unused 'reference_db "$work/ref.db"' sqlite3 "$work/ref.db" ".read $work/small.sql"

# 3. replace: the same rows again, every one a duplicate that updates its recipient; first
#    with unchanged values (nothing to rewrite), then with two changed columns in every row
best t_replace m_replace "restore New New" "${cli[@]}" --connection Big --group New --replace
best t_changed m_changed "restore New New" "${cli[@]}" --connection Changed --group New --replace

#    a tenth of the rows into a new Group
best t_small m_small "fresh Small" "${cli[@]}" --connection Small --no-replace

#    a second source into a Group already holding the first, and into an empty one
best t_full m_full "restore New Full" "${cli[@]}" --connection Other --no-replace
best t_empty m_empty "fresh Empty" "${cli[@]}" --connection Empty --no-replace

# 2. PostgreSQL
pg_done=0
if [ "${NO_PG:-0}" != 1 ]; then
    # shellcheck source=scripts/pg-test-server.sh
    source "$root/scripts/pg-test-server.sh"
    pg_test_server_start >/dev/null
    export PGHOST=$DBIMPORT_TEST_PG_HOST PGPORT=$DBIMPORT_TEST_PG_PORT PGDATABASE=$DBIMPORT_TEST_PG_DB
    export PGUSER=$DBIMPORT_TEST_PG_USER PGPASSWORD=$DBIMPORT_TEST_PG_PASSWORD
    pg_columns="contactid integer primary key, \"Full Name\" text, title text, firstname text, initial text, lastname text, email text, address1 text, address2 text, city text, state text, zip text, country text, company text, jobtitle text, web text, telephone text, fax text, notes text, joined date, score double precision, active boolean"
    pg_load() { # TABLE SOURCE.db
        psql -X -q -v ON_ERROR_STOP=1 -c "CREATE TABLE $1 ($pg_columns)"
        sqlite3 -csv "$2" "SELECT * FROM Contacts" | psql -X -q -v ON_ERROR_STOP=1 -c "\\copy $1 from stdin with csv"
        psql -X -q -c "VACUUM ANALYZE $1"
    }
    echo "Loading PostgreSQL ($rows rows$([ "$pg_big" -gt 0 ] && echo ", $pg_big rows")) ..."
    pg_load contacts "$work/big.db"
    pg_cs="Driver={PostgreSQL Unicode};Server=$PGHOST;Port=$PGPORT;Database=$PGDATABASE;Uid=$PGUSER;Pwd=$PGPASSWORD;"
    "$bin/dbimport-bench-makeini" "$ini" Postgres "$pg_cs" Pg wide contacts
    best t_pg m_pg "fresh Pg" "${cli[@]}" --connection Postgres --no-replace
    added_pg=$(added)
    pg_reference_db() {
        reference_db "$work/ref.db"
        sqlite3 "$work/ref.db" "CREATE TABLE staging (title, firstname, lastname, email, initial, address1, address2, city, state, zip, country, company, jobtitle, web, telephone, fax, notes, joined, score, active)"
    }
    cat >"$work/pgref.sh" <<SH
psql -X -q -c "\\copy (SELECT title, firstname, lastname, email, initial, address1, address2, city, state, zip, country, company, jobtitle, web, telephone, fax, notes, joined, score, active FROM contacts) to stdout with csv" |
sqlite3 "$work/ref.db" ".import --csv /dev/stdin staging" "INSERT INTO Recipients ($wide_to) SELECT title, firstname, lastname, trim(email), initial, address1, address2, city, state, zip, country, company, jobtitle, web, telephone, fax, notes, joined, score, active, date('now') FROM staging"
SH
    best t_pg_ref unused pg_reference_db bash "$work/pgref.sh"
    m_pg_big=0
    if [ "$pg_big" -gt 0 ]; then
        "$bin/dbimport-gensource" "$work/big3.db" "$pg_big" --seed 4 >/dev/null
        pg_load contacts3 "$work/big3.db"
        rm -f "$work/big3.db"
        "$bin/dbimport-bench-makeini" "$ini" Postgres3 "$pg_cs" Pg3 wide contacts3
        fresh Pg3
        measure t_pg_big m_pg_big "${cli[@]}" --connection Postgres3 --no-replace
        rm -f "$data/Pg3.gdb"
    fi
    pg_test_server_stop >/dev/null 2>&1 || true
    unset PG_TEST_SERVER_DIR
    pg_done=1
fi

row() { printf '  %-62s %8s %s\n' "$1" "$2" "${3:-}"; }
echo
echo "dbimport-cli import benchmark ($(nproc) CPUs, $(date -u '+%Y-%m-%d %H:%M UTC'), best of $repeat runs each)"
echo "1. SQLite source, $rows rows into a new Group"
row "narrow (5 columns): dbimport-cli ($added_narrow added)" "$t_narrow s" "(processor $t_narrow_cpu s)"
row "  sqlite3 INSERT INTO ... SELECT, same rows and index" "$t_sqlite_narrow s" "(processor $t_sqlite_narrow_cpu s)"
row "  ratio" "$(ratio "$t_narrow" "$t_sqlite_narrow")" "(target <= 1.0; processor time $(ratio "$t_narrow_cpu" "$t_sqlite_narrow_cpu"))"
row "wide (every field): dbimport-cli ($added_wide added)" "$t_add s" "(processor $t_add_cpu s)"
row "  sqlite3 INSERT INTO ... SELECT, same rows and index" "$t_sqlite s" "(processor $t_sqlite_cpu s)"
row "  ratio" "$(ratio "$t_add" "$t_sqlite")" "(target <= 1.0; processor time $(ratio "$t_add_cpu" "$t_sqlite_cpu"))"
row "  peak resident memory, narrow / wide" "$((m_narrow / 1024)) / $((m_add / 1024)) MB"
if [ "$pg_done" = 1 ]; then
    echo "2. PostgreSQL source (an ODBC connection string), wide rows"
    row "$rows rows: dbimport-cli ($added_pg added)" "$t_pg s" "(processor $t_pg_cpu s)"
    row "  psql \\copy | sqlite3 .import + INSERT ... SELECT with the index" "$t_pg_ref s" "(processor $t_pg_ref_cpu s)"
    row "  ratio" "$(ratio "$t_pg" "$t_pg_ref")" "(target <= 1.0; processor time $(ratio "$t_pg_cpu" "$t_pg_ref_cpu"))"
    row "  peak resident memory, $rows rows" "$((m_pg / 1024)) MB" "(target <= 300)"
    if [ "$pg_big" -gt 0 ]; then
        row "  peak resident memory, $pg_big rows ($t_pg_big s)" "$((m_pg_big / 1024)) MB" "(target <= 300, not growing)"
    fi
fi
echo "3. Replace, scale and a full Group (wide rows)"
row "--replace, the same rows again (all duplicates)" "$t_replace s"
row "  replace / add" "$(ratio "$t_replace" "$t_add")" "(target <= 1.2)"
row "--replace, city and telephone changed in every row" "$t_changed s"
row "  replace (changed) / add" "$(ratio "$t_changed" "$t_add")" "(target <= 1.2)"
row "$small rows into a new Group" "$t_small s"
row "  $rows rows / $small rows" "$(ratio "$t_add" "$t_small")" "(target <= 11; sqlite3's own: $(ratio "$t_sqlite" "$t_sqlite_small"))"
row "$rows rows into a Group holding $added_wide" "$t_full s"
row "$rows rows (the same source) into an empty Group" "$t_empty s"
row "  full / empty" "$(ratio "$t_full" "$t_empty")" "(target <= 1.3)"
row "  peak resident memory, into the full Group" "$((m_full / 1024)) MB" "(target <= 300)"
