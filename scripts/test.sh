#!/usr/bin/env bash
# Sets up and builds DEQAZ, then runs every test twice: in the normal build and in a build with
# AddressSanitizer and UndefinedBehaviorSanitizer; the library's thread test under
# ThreadSanitizer; then runs each fuzz target briefly.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh build
scripts/setup.sh build-asan -DDEQAZ_SANITIZE=ON
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
status=0
ctest --test-dir build --output-on-failure -j"$(nproc)" || status=1
ctest --test-dir build-asan --output-on-failure -j"$(nproc)" || status=1

# The library converting on several threads at once, under ThreadSanitizer.
cmake -S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DDEQAZ_TSAN=ON >/dev/null
cmake --build build-tsan --target api_test qaz -j"$(nproc)"
TSAN_OPTIONS=halt_on_error=1 build-tsan/tests/api_test || status=1
# qaz packing and unpacking a folder of corpus modules on four threads (a race exits with 66).
tsan_dir=$(mktemp -d)
mkdir "$tsan_dir/in"
# The list is read whole (no `head` in a pipe: under pipefail its early exit fails the step).
mapfile -t xms < <(find ../shared/corpus -name '*.xm' -size -200k | sort)
cp "${xms[@]:0:12}" "$tsan_dir/in/"
for step in "pack -j 4 $tsan_dir/in" "unpack -j 4 -o $tsan_dir/out $tsan_dir/in"; do
  rc=0
  TSAN_OPTIONS=halt_on_error=1:exitcode=66 build-tsan/qaz $step 2>"$tsan_dir/log" || rc=$?
  if [ "$rc" = 66 ]; then cat "$tsan_dir/log"; status=1; fi
done
rm -rf "$tsan_dir"

# Fuzz smoke run: every libFuzzer target (clang, ASan + UBSan) for about ten seconds from freshly
# written seeds. A crash, a sanitizer report, a failed property check or a timeout fails the run;
# the input that did it is left as build-fuzz/smoke-<target>-{crash,timeout,oom}-* (fuzz/README.md).
cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DDEQAZ_FUZZ=ON -DDEQAZ_TESTS=OFF \
  -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang >/dev/null
cmake --build build-fuzz --target fuzz_all -j"$(nproc)"
rm -rf build-fuzz/seeds
build-fuzz/fuzz/make_seeds build-fuzz/seeds >/dev/null
for target in convert unpack predict vorbis layer3 tracks readers; do
  scratch=$(mktemp -d)
  if ! build-fuzz/fuzz/fuzz_$target -dict=fuzz/qaz.dict -max_total_time=10 -timeout=60 \
      -artifact_prefix=build-fuzz/smoke-$target- "$scratch" build-fuzz/seeds/$target \
      >build-fuzz/smoke-$target.log 2>&1; then
    echo "fuzz_$target failed: see build-fuzz/smoke-$target.log"
    status=1
  fi
  rm -rf "$scratch"
done
exit $status
