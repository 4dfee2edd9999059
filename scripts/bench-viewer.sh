#!/usr/bin/env bash
# The results viewer on 1,000,000 rows: builds a Release tree, generates the rows with
# dbimport-gensource into SQLite, copies them into a throw-away PostgreSQL server, and
# prints for each source what the viewer takes (first rows on screen, the count shown,
# scrolling to the last row, closing) and its peak memory, against plain reads of the same
# statement through the same driver measured in the same run: COUNT(*), the first row,
# every row read forward.
# Targets: first rows <= 1 s, count <= 3 s, no pause of the window over 0.25 s while it
# scrolls to the end, peak memory <= 300 MB.
# Options through the environment: BUILD_DIR, ROWS. Figures only: nothing here fails a build.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
build=${BUILD_DIR:-build-bench-viewer}
rows=${ROWS:-1000000}

command -v sqlite3 >/dev/null || { echo "bench-viewer: needs the sqlite3 program (scripts/setup.sh)" >&2; exit 1; }

cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" -j2 --target bench_viewer dbimport-gensource >/dev/null

work=$(mktemp -d "${TMPDIR:-/tmp}/dbimport-bench-viewer-XXXXXX")
# shellcheck source=scripts/pg-test-server.sh
source "$root/scripts/pg-test-server.sh"
cleanup() { pg_test_server_stop; rm -rf "$work"; }
trap cleanup EXIT

echo "Generating $rows rows ..."
"$build/bin/dbimport-gensource" "$work/big.db" "$rows" --seed 1 >/dev/null
chmod 755 "$work"
chmod 644 "$work/big.db"

pg_test_server_start >/dev/null
export PGPASSWORD=$DBIMPORT_TEST_PG_PASSWORD
pg=(psql -X -q -v ON_ERROR_STOP=1 -h "$DBIMPORT_TEST_PG_HOST" -p "$DBIMPORT_TEST_PG_PORT"
    -U "$DBIMPORT_TEST_PG_USER" -d "$DBIMPORT_TEST_PG_DB")
"${pg[@]}" -c 'CREATE TABLE "Contacts" ("ContactID" integer PRIMARY KEY, "Full Name" text,
  "Title" text, "FirstName" text, "Initial" text, "LastName" text, "Email" text,
  "Address1" text, "Address2" text, "City" text, "State" text, "Zip" text, "Country" text,
  "Company" text, "JobTitle" text, "Web" text, "Telephone" text, "Fax" text, "Notes" text,
  "Joined" date, "Score" double precision, "Active" boolean)'
sqlite3 -csv "$work/big.db" "SELECT ContactID, \"Full Name\", Title, FirstName, Initial, LastName,
  Email, Address1, Address2, City, State, Zip, Country, Company, JobTitle, Web, Telephone, Fax,
  Notes, Joined, Score, CASE WHEN Active THEN 'true' ELSE 'false' END FROM Contacts" |
  "${pg[@]}" -c '\copy "Contacts" FROM STDIN WITH (FORMAT csv)'
"${pg[@]}" -c 'VACUUM ANALYZE "Contacts"'

sqlite_con="Provider=SQLite;Data Source=$work/big.db"
pg_con="Driver={PostgreSQL Unicode};Server=$DBIMPORT_TEST_PG_HOST;Port=$DBIMPORT_TEST_PG_PORT;Database=$DBIMPORT_TEST_PG_DB;Uid=$DBIMPORT_TEST_PG_USER;Pwd=$DBIMPORT_TEST_PG_PASSWORD;"

value() { grep "^$1 " "$2" | awk '{print $2}'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b > 0) printf "%.2f", a / b; else print "n/a" }'; }

run() {
    local name=$1 con=$2 sql=$3
    local v="$work/$name.viewer" r="$work/$name.reference"
    QT_QPA_PLATFORM=offscreen "$build/bench/bench_viewer" viewer "$con" "$sql" >"$v" 2>"$work/err" ||
        { cat "$work/err" >&2; exit 1; }
    QT_QPA_PLATFORM=offscreen "$build/bench/bench_viewer" reference "$con" "$sql" >"$r" 2>"$work/err" ||
        { cat "$work/err" >&2; exit 1; }
    echo
    echo "== $name: $sql"
    printf '%-34s %10s %12s %8s   %s\n' "" viewer reference ratio target
    printf '%-34s %10s %12s %8s   %s\n' "first rows on screen (ms)" "$(value first_rows_ms "$v")" \
        "$(value ref_first_row_ms "$r")" "$(ratio "$(value first_rows_ms "$v")" "$(value ref_first_row_ms "$r")")" "<= 1000 ms"
    printf '%-34s %10s %12s %8s   %s\n' "count shown (ms)" "$(value count_ms "$v")" \
        "$(value ref_count_ms "$r")" "$(ratio "$(value count_ms "$v")" "$(value ref_count_ms "$r")")" "<= 3000 ms"
    printf '%-34s %10s %12s %8s\n' "scroll to the last row (ms)" "$(value scroll_to_end_ms "$v")" \
        "$(value ref_read_all_ms "$r")" "$(ratio "$(value scroll_to_end_ms "$v")" "$(value ref_read_all_ms "$r")")"
    printf '%-34s %10s %12s %8s   %s\n' "  longest pause while scrolling (ms)" \
        "$(value scroll_longest_stall_ms "$v")" "" "" "<= 250 ms"
    printf '%-34s %10s %12s\n' "rows counted / last row shown" "$(value count "$v")/$(value last_row_number "$v")" \
        "$(value ref_count "$r")"
    printf '%-34s %10s\n' "close after the end (ms)" "$(value close_ms "$v")"
    printf '%-34s %10s\n' "close while reading (ms)" "$(value close_while_reading_ms "$v")"
    printf '%-34s %10s %12s %8s   %s\n' "peak memory (MB)" "$(($(value peak_rss_kb "$v") / 1024))" \
        "$(($(value ref_peak_rss_kb "$r") / 1024))" \
        "$(ratio "$(value peak_rss_kb "$v")" "$(value ref_peak_rss_kb "$r")")" "<= 300 MB"
}

run SQLite "$sqlite_con" "select * from Contacts"
run PostgreSQL "$pg_con" 'select * from "Contacts"'
