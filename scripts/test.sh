#!/usr/bin/env bash
# Sets up and builds DEQAZ, then runs every test twice: in the normal build and in a build with
# AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh build
scripts/setup.sh build-asan -DDEQAZ_SANITIZE=ON
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
status=0
ctest --test-dir build --output-on-failure -j"$(nproc)" || status=1
ctest --test-dir build-asan --output-on-failure -j"$(nproc)" || status=1
exit $status
