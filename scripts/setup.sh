#!/usr/bin/env bash
# Installs the Debian packages this project builds, tests and benchmarks with.
# Idempotent: does nothing when every package (and the test client's npm packages) is already present.
set -euo pipefail

packages=(
  build-essential cmake pkg-config
  qtbase5-dev qtdeclarative5-dev libqt5serialport5-dev
  qml-module-qtquick2 qml-module-qtquick-controls2 qml-module-qtquick-layouts
  qttools5-dev-tools
  libqt5sql5-sqlite libsqlite3-dev sqlite3
  libmosquitto-dev mosquitto mosquitto-clients openssl
  libcpp-httplib-dev libjs-chart.js chromium
  libpq-dev postgresql
  libbenchmark-dev
  clang libclang-rt-dev
  bluez dbus
  bash-completion man-db
)

# Node.js and npm for the third-party Open Protocol client's test, unless this machine has its own.
command -v node >/dev/null && command -v npm >/dev/null || packages+=(nodejs npm)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update
  $SUDO apt-get install -y --no-install-recommends "${missing[@]}"
fi

# The Open Protocol client the end-to-end test drives, and puppeteer-core that drives Debian's
# Chromium for the web page's test (it downloads no browser), pinned by their lock files.
root="$(cd "$(dirname "$0")/.." && pwd)"
for client in "$root/tests/open_protocol/client" "$root/tests/web/client"; do
  if [ ! -d "$client/node_modules" ] || [ "$client/package-lock.json" -nt "$client/node_modules" ]; then
    (cd "$client" && npm ci --no-audit --no-fund)
  fi
done
