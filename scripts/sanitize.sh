#!/usr/bin/env bash
# The test suite under AddressSanitizer (leaks included) and UndefinedBehaviorSanitizer,
# built in build-asan/. Any report fails the test that raised it.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/setup.sh"
cmake -S "$root" -B "$root/build-asan" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DHYTORC_SANITIZE=ON \
  -DHYTORC_BENCH=OFF >/dev/null
cmake --build "$root/build-asan" -j"$(nproc)"
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:strict_string_checks=1:detect_stack_use_after_return=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
export LSAN_OPTIONS="suppressions=$root/scripts/lsan.supp:print_suppressions=0"
cd "$root/build-asan"
ctest --output-on-failure -j"$(nproc)"
