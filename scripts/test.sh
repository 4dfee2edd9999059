#!/usr/bin/env bash
# Installs what is needed, builds, and runs every test: once in a normal build and once
# under AddressSanitizer and UndefinedBehaviorSanitizer. Throw-away PostgreSQL and MariaDB
# servers on loopback ports serve the ODBC tests for the duration of the run. Last, the
# Debian package is built, unpacked into a scratch root and run.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

bash scripts/setup.sh

jobs=$(nproc)
build() { # dir, extra cmake args...
  local dir=$1; shift
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DDBIMPORT_WERROR=ON "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
}

build build
build build-asan -DDBIMPORT_SANITIZE=ON
CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DDBIMPORT_FUZZ=ON >/dev/null
cmake --build build-fuzz -j "$jobs" --target fuzzers

# shellcheck source=scripts/pg-test-server.sh
source scripts/pg-test-server.sh
# shellcheck source=scripts/mariadb-test-server.sh
source scripts/mariadb-test-server.sh
pg_test_server_start
trap 'pg_test_server_stop; mariadb_test_server_stop' EXIT
mariadb_test_server_start

status=0
echo "== Tests =="
ctest --test-dir build --output-on-failure -j "$jobs" || status=1
echo "== Tests under AddressSanitizer and UndefinedBehaviorSanitizer =="
# The sanitizer options and leak suppressions are compiled in (sanitizers/).
ctest --test-dir build-asan --output-on-failure -j "$jobs" || status=1
echo "== Fuzzing, ${DBIMPORT_FUZZ_SECONDS:-30} s a target =="
for fuzzer in build-fuzz/fuzz/fuzz_*; do
  name=${fuzzer##*/fuzz_}
  work=$(mktemp -d)
  cp fuzz/corpus/"$name"/* "$work"/
  if ! TMPDIR=/dev/shm "$fuzzer" -max_total_time="${DBIMPORT_FUZZ_SECONDS:-30}" \
      -rss_limit_mb=1536 -artifact_prefix="$work/" "$work" >"$work.log" 2>&1; then
    echo "fuzz_$name found a fault:"; tail -40 "$work.log"; status=1
  else
    echo "fuzz_$name: $(grep -o 'Done [0-9]* runs' "$work.log"), no fault"
  fi
  rm -rf "$work" "$work.log"
done
echo "== The Debian package, unpacked into a scratch root =="
bash scripts/package-check.sh || status=1
exit $status
