#!/usr/bin/env bash
# Builds the Debian package dbimport_<version>_amd64.deb in build-package/ (a Release build
# of its own) and shows its control data. Its dependencies are computed from the binaries
# (dpkg-shlibdeps, in dpkg-dev) plus the database drivers the programs load at run time.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

build=${DBIMPORT_PACKAGE_DIR:-build-package}

bash scripts/setup.sh
launcher=()
if command -v ccache >/dev/null; then launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache); fi
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
  -DCMAKE_SKIP_INSTALL_ALL_DEPENDENCY=ON "${launcher[@]}" >/dev/null
cmake --build "$build" -j "${DBIMPORT_JOBS:-$(nproc)}" --target dbimport dbimport-cli dbimport-gensource dbimport-manpage
(cd "$build" && cpack -G DEB >cpack.log 2>&1) || { cat "$build/cpack.log"; exit 1; }

deb=$(ls -1t "$build"/dbimport_*_amd64.deb | head -n 1)
dpkg-deb -I "$deb"
echo "Package: $deb ($(du -k "$deb" | cut -f1) KiB)"
