#!/usr/bin/env bash
# Takes the README's pictures of the wizard: its five steps (the mapping step twice, at the
# top and scrolled to the end), the Add New Group dialog and the two connection dialogs. The windows are drawn by the
# X11 platform on an Xvfb screen of 1366x768, the size of a common laptop display, by the
# tour and dialog-keys tests, which also check that no caption is cut and that the window fits the screen.
# DBIMPORT_SCALE=1.5 (or 2) takes them with Qt scaled, as on a high-density screen.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

build=${DBIMPORT_BUILD_DIR:-build} # another build folder than build/ if set

bash scripts/setup.sh
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DDBIMPORT_WERROR=ON >/dev/null
cmake --build "$build" -j "$(nproc)" --target tst_wizardtour tst_dialogkeys

out="$root/docs/screenshots"
mkdir -p "$out"
rm -f "$out"/*.png

DBIMPORT_SCREENSHOT_DIR="$out" QT_QPA_PLATFORM=xcb QT_SCALE_FACTOR="${DBIMPORT_SCALE:-1}" \
  xvfb-run -a -s "-screen 0 1366x768x24" \
  "$build/tests/tst_wizardtour" everyStepFits
DBIMPORT_SCREENSHOT_DIR="$out" QT_QPA_PLATFORM=xcb QT_SCALE_FACTOR="${DBIMPORT_SCALE:-1}" \
  xvfb-run -a -s "-screen 0 1366x768x24" \
  "$build/tests/tst_dialogkeys" dialogs

echo "Screenshots in $out:"
ls -1 "$out"
