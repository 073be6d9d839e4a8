#!/usr/bin/env bash
# The test suite under AddressSanitizer (leaks included) and UndefinedBehaviorSanitizer,
# built in build-asan/. Any report fails the test that raised it.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/setup.sh"
cmake -S "$root" -B "$root/build-asan" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DHYTORC_SANITIZE=ON \
  -DHYTORC_BENCH=OFF >/dev/null
cmake --build "$root/build-asan" -j"$(nproc)"
# Every process of the suite (child programs too) writes its reports into one folder:
# a report from a process whose exit status nobody checks still fails the run.
reports="$root/build-asan/sanitizer-reports"
rm -rf "$reports" && mkdir -p "$reports"
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:detect_stack_use_after_return=1:log_path=$reports/asan"
export LSAN_OPTIONS="suppressions=$root/scripts/lsan-qt.supp:print_suppressions=0"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:log_path=$reports/ubsan"
cd "$root/build-asan"
ctest --output-on-failure -j"$(nproc)"
if compgen -G "$reports/*" >/dev/null; then
  cat "$reports"/* >&2
  echo "sanitizer reports above" >&2
  exit 1
fi
