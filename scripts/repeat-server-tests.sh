#!/usr/bin/env bash
# Runs the tests that talk to a database server, in the sanitizer build, COUNT times in a
# row (default 30) against fresh test servers, and prints how many rounds passed. A leak or
# a crash that shows up only now and then in CI shows up here.
#
#   bash scripts/repeat-server-tests.sh [COUNT]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
count=${1:-30}

bash scripts/setup.sh
cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DDBIMPORT_WERROR=ON \
  -DDBIMPORT_SANITIZE=ON >/dev/null
cmake --build build-asan -j "$(nproc)" >/dev/null

# shellcheck source=scripts/pg-test-server.sh
source scripts/pg-test-server.sh
# shellcheck source=scripts/mariadb-test-server.sh
source scripts/mariadb-test-server.sh
pg_test_server_start
trap 'pg_test_server_stop; mariadb_test_server_stop' EXIT
mariadb_test_server_start

logs=$(mktemp -d)
passed=0
for ((round = 1; round <= count; round++)); do
  if ctest --test-dir build-asan -L server --output-on-failure >"$logs/round-$round.log" 2>&1; then
    passed=$((passed + 1))
  else
    echo "round $round failed: $logs/round-$round.log"
  fi
done
tests=$(ctest --test-dir build-asan -L server -N | sed -n 's/^Total Tests: //p')
echo "$passed/$count rounds passed ($tests server tests a round, sanitizer build)"
[ "$passed" -eq "$count" ]
