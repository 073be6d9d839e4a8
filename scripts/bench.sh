#!/usr/bin/env bash
# The benchmarks: build, then print every figure.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/build.sh"
for b in "$root"/build/bin/bench_*; do
  echo "== $(basename "$b")"
  case "$b" in
    */bench_soak) "$b" "${HYTORC_SOAK_N:-20}" ;;  # N rounds of every command; 20 keeps CI short
    *) "$b" --benchmark_counters_tabular=true ;;
  esac
done
