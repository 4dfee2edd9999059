#!/usr/bin/env bash
# Times one import of many records (100,000 valid ones by default, plus a few invalid and
# duplicate addresses) through the wizard, its buttons pressed under the offscreen platform,
# and the very same import through dbimport-cli, and prints both times and their ratio, and
# the longest time the wizard's window went without handling events (repaint, Cancel).
# Each side runs five times into a fresh, empty Group; the best time of each counts.
#   bash scripts/bench-wizard.sh [records]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
rows=${1:-100000}
runs=5

build=${DBIMPORT_BUILD_DIR:-build} # another build folder than build/ if set

bash scripts/setup.sh
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DDBIMPORT_WERROR=ON >/dev/null
cmake --build "$build" -j "$(nproc)" --target tst_wizardtour dbimport-cli >/dev/null

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

best() { sort -n | head -n 1; }

wizard_times=()
cli_times=()
waits=()
records=""
# Each round times the wizard and then the command-line runner on the same source, so that
# both meet the same load from other work on the machine.
for ((i = 1; i <= runs; i++)); do
  # The tour test builds the source, the settings and the Groups in $work each time.
  if ! out=$(DBIMPORT_BENCH_ROWS=$rows DBIMPORT_BENCH_DIR="$work" QT_QPA_PLATFORM=offscreen \
      "$build/tests/tst_wizardtour" timedImport 2>&1); then
    echo "$out"
    exit 1
  fi
  line=$(grep -o 'wizard import: [0-9]* records in [0-9]* ms' <<<"$out")
  waits+=("$(grep -o 'longest wait for events: [0-9]*' <<<"$out" | grep -o '[0-9]*$')")
  records=$(awk '{print $3}' <<<"$line")
  wizard_times+=("$(awk '{print $6}' <<<"$line")")

  "$build/bin/dbimport-cli" --data-folder "$work/data" --ini "$work/dbimport.ini" \
    --create-group "Bench" >/dev/null
  sync # the wizard's Group is still on its way to the disk otherwise
  start=$(date +%s%N)
  if ! out=$("$build/bin/dbimport-cli" --data-folder "$work/data" --ini "$work/dbimport.ini" \
      --connection "Demo contacts" --group "Bench" --quiet 2>&1); then
    echo "$out"
    exit 1
  fi
  end=$(date +%s%N)
  cli_times+=("$(((end - start) / 1000000))")
done
wizard_ms=$(printf '%s\n' "${wizard_times[@]}" | best)
cli_ms=$(printf '%s\n' "${cli_times[@]}" | best)

echo "records read:      $records"
echo "wizard (ms):       ${wizard_times[*]}  best $wizard_ms"
echo "dbimport-cli (ms): ${cli_times[*]}  best $cli_ms"
awk -v w="$wizard_ms" -v c="$cli_ms" \
  'BEGIN { printf "ratio wizard/cli:  %.2f (target at most 1.10)\n", w / c }'
echo "longest wait for events in the wizard (ms): ${waits[*]}  (target at most 100)"
