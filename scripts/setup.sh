#!/usr/bin/env bash
# Installs the Debian packages DEQAZ needs (only those missing), then configures and builds.
#   scripts/setup.sh [build-dir [extra cmake args...]]
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(
  g++ cmake ninja-build pkg-config      # the build
  libogg-dev libvorbis-dev              # Ogg Vorbis sample decoding; libvorbisenc for the QAZ writer
  libmpg123-dev                         # Layer III sample decoding
  libmp3lame-dev                        # Layer III encoding for the QAZ writer
  libgtest-dev                          # tests: GoogleTest
  libxmp-dev                            # tests, scripts/roundtrip.sh: libxmp judges the modules we write
  mpg123 lame                           # tests/samples/layer3_test.cpp: reference Layer III decoder and encoder
  util-linux coreutils                  # tests: prlimit (memory limits), env and timeout (running Schism)
  clang libclang-rt-dev                 # scripts/test.sh: the fuzzing build and its smoke run
  schism                                # scripts/roundtrip.sh: Schism Tracker, the round trip's second judge
  xz-utils zstd bc                      # scripts/sizes.sh: the reference compressors and the arithmetic
  man-db time                           # tests: man -l renders the man pages; bench/unpack_bench.sh times runs
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  sudo_cmd=()
  [ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
  export DEBIAN_FRONTEND=noninteractive
  "${sudo_cmd[@]}" apt-get update -qq
  "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

build_dir="${1:-build}"
shift || true
cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
cmake --build "$build_dir" -j"$(nproc)"
