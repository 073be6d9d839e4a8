#!/usr/bin/env bash
# The benchmarks: build, then print every figure.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/build.sh"
for b in "$root"/build/bin/bench_*; do
  echo "== $(basename "$b")"
  "$b" --benchmark_counters_tabular=true
done
