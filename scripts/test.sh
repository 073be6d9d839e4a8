#!/usr/bin/env bash
# The whole test suite: build, then every test through CTest.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/build.sh"
cd "$root/build"
ctest --output-on-failure -j"$(nproc)"
