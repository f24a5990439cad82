#!/usr/bin/env bash
# Installs the Debian packages DEQAZ needs (only those missing), then configures and builds.
#   scripts/setup.sh [build-dir [extra cmake args...]]
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(
  g++ cmake ninja-build pkg-config            # toolchain
  libogg-dev libvorbis-dev libmpg123-dev      # sample decoding
  libmp3lame-dev                              # Layer III encoding for the QAZ writer
  libgtest-dev libxmp-dev                     # tests: GoogleTest, libxmp as independent module reader
  clang libclang-rt-dev                       # fuzzing harness
)
# Callers may ask for more (scripts/roundtrip.sh adds Schism Tracker, its second judge).
read -r -a extra <<<"${DEQAZ_EXTRA_PACKAGES:-}"
packages+=("${extra[@]}")
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
