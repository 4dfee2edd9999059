#!/usr/bin/env bash
# Installs every Debian package the build, the tests and the demo need.
# Does nothing when all of them are already there; uses sudo when not root.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  qt6-base-dev qt6-base-dev-tools libqt6sql6-sqlite libqt6sql6-odbc
  libgl-dev
  unixodbc unixodbc-dev odbcinst
  libsqlite3-dev sqlite3 libsqliteodbc
  postgresql odbc-postgresql libpq-dev
  mariadb-server odbc-mariadb libmariadb-dev
  xvfb xauth
  time
  dpkg-dev gzip
  clang libclang-rt-14-dev
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  SUDO="sudo"
fi

echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
