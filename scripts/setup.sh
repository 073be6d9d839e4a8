#!/usr/bin/env bash
# Installs the Debian packages this project builds, tests and benchmarks with.
# Idempotent: does nothing when every package is already present.
set -euo pipefail

packages=(
  build-essential cmake pkg-config
  qtbase5-dev qtdeclarative5-dev libqt5serialport5-dev
  qml-module-qtquick2 qml-module-qtquick-controls2 qml-module-qtquick-layouts
  qttools5-dev-tools
  libqt5sql5-sqlite
  libmosquitto-dev mosquitto openssl
  libbenchmark-dev
  clang libclang-rt-dev
  bluez
  bash-completion man-db
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update
$SUDO apt-get install -y --no-install-recommends "${missing[@]}"
