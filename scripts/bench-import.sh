#!/usr/bin/env bash
# The import benchmark: builds a Release tree, generates sources with dbimport-gensource and
# prints, for dbimport-cli:
#   1. 1,000,000 rows into a new Group, against sqlite3's own INSERT INTO ... SELECT of the
#      same rows into a Group-shaped table with the same index (target: ratio <= 1.5), and a
#      test run (--dry-run) of the same rows, against the real run (target <= 1);
#   2. the same rows again with --replace into the now full Group, against 1. (target <= 2x),
#      once unchanged (rows whose values are the same are not rewritten) and once with two
#      columns changed in every row;
#   3. 100,000 against 1,000,000 rows (about tenfold);
#   4. peak memory of 1,000,000 rows into a Group already holding 1,000,000 (target <= 300 MB).
# Options through the environment: BUILD_DIR, WORK_DIR (default: a temporary folder), ROWS.
# Figures only: nothing here passes or fails a build.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
build=${BUILD_DIR:-build-bench-import}
rows=${ROWS:-1000000}
small=$((rows / 10))

command -v sqlite3 >/dev/null || { echo "bench-import: needs the sqlite3 program (scripts/setup.sh)" >&2; exit 1; }
[ -x /usr/bin/time ] || { echo "bench-import: needs /usr/bin/time (Debian package time, scripts/setup.sh)" >&2; exit 1; }

cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" -j2 --target dbimport-cli dbimport-gensource dbimport-bench-makeini >/dev/null
bin="$root/$build/bin"

work=${WORK_DIR:-$(mktemp -d "${TMPDIR:-/tmp}/dbimport-bench-XXXXXX")}
[ -n "${WORK_DIR:-}" ] || trap 'rm -rf "$work"' EXIT
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

"$bin/dbimport-bench-makeini" "$ini" Big "$work/big.db" New
"$bin/dbimport-bench-makeini" "$ini" Other "$work/other.db" Full
"$bin/dbimport-bench-makeini" "$ini" Small "$work/small.db" Small
"$bin/dbimport-bench-makeini" "$ini" Changed "$work/changed.db" New

# seconds (wall) and peak resident kB of one command, into the named variables
measure() {
    local secs_var=$1 kb_var=$2
    shift 2
    local stats="$work/time.txt"
    /usr/bin/time -f '%e %M' -o "$stats" "$@" >"$work/last.out" 2>"$work/last.err" || {
        echo "bench-import: command failed: $*" >&2
        cat "$work/last.err" >&2
        exit 1
    }
    read -r "$secs_var" "$kb_var" <"$stats"
}

cli=("$bin/dbimport-cli" --data-folder "$data" --ini "$ini" --quiet --json)
group() { "$bin/dbimport-cli" --data-folder "$data" --create-group "$1" >/dev/null 2>&1; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b > 0) printf "%.2f", a / b; else print "n/a" }'; }

# 1. a new Group against sqlite3's own copy
group New
measure t_add m_add "${cli[@]}" --connection Big --no-replace
added=$(grep -o '"added":[0-9]*' "$work/last.out" | grep -o '[0-9]*$')

columns="Title TEXT, FirstName TEXT, LastName TEXT, EmailAddress TEXT, Initial TEXT, Address1 TEXT, Address2 TEXT, City TEXT, State TEXT, Zip TEXT, Country TEXT, Company TEXT, JobTitle TEXT, WEB TEXT, Telephone TEXT, FAX TEXT, Field1 TEXT, Field2 TEXT, Field3 TEXT, Field4 TEXT, DateAdded TEXT"
rm -f "$work/baseline.db"
sqlite3 "$work/baseline.db" "CREATE TABLE Recipients ($columns); CREATE INDEX RecipientsEmailAddress ON Recipients (EmailAddress COLLATE NOCASE);"
cat >"$work/baseline.sql" <<SQL
ATTACH '$work/big.db' AS source;
INSERT INTO Recipients (Title, FirstName, LastName, EmailAddress, Initial, Address1, Address2, City, State, Zip, Country, Company, JobTitle, WEB, Telephone, FAX, DateAdded)
SELECT Title, FirstName, LastName, trim(Email), Initial, Address1, Address2, City, State, Zip, Country, Company, JobTitle, Web, Telephone, Fax, date('now') FROM source.Contacts;
SQL
measure t_sqlite m_sqlite sqlite3 "$work/baseline.db" ".read $work/baseline.sql"
# the same copy of the small source, to see how SQLite itself scales
rm -f "$work/baseline-small.db"
sqlite3 "$work/baseline-small.db" "CREATE TABLE Recipients ($columns); CREATE INDEX RecipientsEmailAddress ON Recipients (EmailAddress COLLATE NOCASE);"
sed "s|$work/big.db|$work/small.db|" "$work/baseline.sql" >"$work/baseline-small.sql"
measure t_sqlite_small m_sqlite_small sqlite3 "$work/baseline-small.db" ".read $work/baseline-small.sql"

# 1b. a test run of the same rows into an empty Group: everything but the writes
group Dry
measure t_dry m_dry "${cli[@]}" --connection Big --group Dry --no-replace --dry-run

# 2. replace: the same rows again, every one a duplicate that updates its recipient; first
#    with unchanged values (nothing to rewrite), then with two changed columns in every row
measure t_replace m_replace "${cli[@]}" --connection Big --group New --replace
measure t_changed m_changed "${cli[@]}" --connection Changed --group New --replace

# 3. a tenth of the rows into a new Group
group Small
measure t_small m_small "${cli[@]}" --connection Small --no-replace

# 4. peak memory: a second source into a Group already holding the first
cp "$data/New.gdb" "$data/Full.gdb"
measure t_full m_full "${cli[@]}" --connection Other --no-replace

echo
echo "dbimport-cli import benchmark ($(nproc) CPUs, $(date -u '+%Y-%m-%d %H:%M UTC'))"
printf '  %-58s %8.2f s  (%s added)\n' "1. dbimport-cli, $rows rows into a new Group" "$t_add" "$added"
printf '  %-58s %8.2f s\n' "   sqlite3 INSERT INTO ... SELECT, same rows and index" "$t_sqlite"
printf '  %-58s %8s    (target <= 1.5)\n' "   ratio" "$(ratio "$t_add" "$t_sqlite")"
printf '  %-58s %8.2f s\n' "   --dry-run, the same rows into an empty Group" "$t_dry"
printf '  %-58s %8s    (target <= 1)\n' "   test run / real run" "$(ratio "$t_dry" "$t_add")"
printf '  %-58s %8.2f s\n' "2. --replace, the same rows again (all duplicates)" "$t_replace"
printf '  %-58s %8s    (target <= 2)\n' "   replace / add" "$(ratio "$t_replace" "$t_add")"
printf '  %-58s %8.2f s\n' "   --replace, city and telephone changed in every row" "$t_changed"
printf '  %-58s %8s    (target <= 2)\n' "   replace (changed) / add" "$(ratio "$t_changed" "$t_add")"
printf '  %-58s %8.2f s\n' "3. dbimport-cli, $small rows into a new Group" "$t_small"
printf '  %-58s %8s    (about 10)\n' "   $rows rows / $small rows" "$(ratio "$t_add" "$t_small")"
printf '  %-58s %8s    (sqlite3 INSERT ... SELECT itself: %.2f s / %.2f s)\n' "   the same for sqlite3's own copy" \
    "$(ratio "$t_sqlite" "$t_sqlite_small")" "$t_sqlite" "$t_sqlite_small"
printf '  %-58s %8.2f s\n' "4. $rows rows into a Group holding $added" "$t_full"
printf '  %-58s %8d MB  (target <= 300)\n' "   peak resident memory" "$((m_full / 1024))"
printf '  %-58s %8d MB\n' "   (peak memory of 1.: new Group)" "$((m_add / 1024))"
