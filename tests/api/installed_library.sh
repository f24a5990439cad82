#!/bin/sh
# The installed tree as a user builds against it: `cmake --install` into a scratch prefix; the
# example programs and a four-thread converter (threads.c) compiled with nothing but
# pkg-config's flags, and a CMake project through find_package(deqaz); they convert QAZ files
# made by the installed qaz from one corpus module of each format, and their bytes must be
# exactly the installed deqaz's; the man pages render.
#   installed_library.sh BUILD_DIR SOURCE_DIR SANITIZE(ON|OFF)
set -eu
build=$1 source=$(cd "$2" && pwd) sanitize=$3
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null
for f in bin/deqaz bin/qaz include/deqaz/deqaz.h share/man/man1/deqaz.1 share/man/man1/qaz.1; do
  [ -f "$prefix/$f" ] || { echo "not installed: $f"; exit 1; }
done
pc=$(find "$prefix" -name deqaz.pc)
export PKG_CONFIG_PATH="${pc%/*}"
libdir=$(pkg-config --variable=libdir deqaz)
[ -f "$libdir/libdeqaz.a" ] && [ -f "$libdir/libdeqaz.so.2" ] || { echo "libraries missing in $libdir"; exit 1; }
flags=""
[ "$sanitize" = ON ] && flags="-fsanitize=address,undefined"
# shellcheck disable=SC2046
cc -std=c99 -Wall -Wextra -Werror $flags "$source/examples/convert.c" $(pkg-config --cflags --libs deqaz) -o "$scratch/convert"
# shellcheck disable=SC2046
cc -std=c99 -Wall -Wextra -Werror $flags "$source/examples/render.c" $(pkg-config --cflags --libs deqaz libxmp) -o "$scratch/render"
# shellcheck disable=SC2046
cc -std=c99 -Wall -Wextra -Werror -pthread $flags "$source/tests/api/threads.c" $(pkg-config --cflags --libs deqaz) -o "$scratch/threads"
for page in deqaz qaz; do
  man -l "$prefix/share/man/man1/$page.1" 2>&1 | grep -q "^SYNOPSIS" || { echo "man -l does not render $page.1"; exit 1; }
done
export LD_LIBRARY_PATH="$libdir"

# The same program through the CMake package.
mkdir "$scratch/project"
cat > "$scratch/project/CMakeLists.txt" <<CMAKE
cmake_minimum_required(VERSION 3.25)
project(uses_deqaz C)
find_package(deqaz REQUIRED)
add_executable(convert "$source/examples/convert.c")
target_compile_options(convert PRIVATE $flags)
target_link_options(convert PRIVATE $flags)
target_link_libraries(convert PRIVATE deqaz::deqaz)
CMAKE
cmake -S "$scratch/project" -B "$scratch/project/build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$scratch/project/build" >/dev/null

corpus="$source/../shared/corpus"
n=0
for ext in it xm s3m mod mtm; do
  module=$(find "$corpus" -name "*.$ext" -size -64k -not -path "*/f/*" | sort | head -n 1)  # f/: damaged on purpose
  [ -n "$module" ] || continue
  "$prefix/bin/qaz" -s "$module" "$scratch/song.qaz"
  "$prefix/bin/deqaz" -s "$scratch/song.qaz" "$scratch/expected"
  for program in "$scratch/convert" "$scratch/project/build/convert" "$scratch/threads"; do
    "$program" "$scratch/song.qaz" "$scratch/got" >/dev/null
    cmp "$scratch/expected" "$scratch/got" || { echo "$program differs from deqaz on $module"; exit 1; }
  done
  # Played through libxmp from memory: a WAV file holding sound.
  "$scratch/render" "$scratch/song.qaz" "$scratch/song.wav" 2 >/dev/null
  [ "$(head -c 4 "$scratch/song.wav")" = RIFF ] && [ "$(wc -c <"$scratch/song.wav")" -gt 16428 ] ||
    { echo "render made no sound of $module"; exit 1; }
  rm -f "$scratch/song.qaz" "$scratch/expected" "$scratch/got" "$scratch/song.wav"
  n=$((n + 1))
done
[ "$n" -eq 5 ] || { echo "only $n formats found in $corpus"; exit 1; }
echo "installed library converts like deqaz and plays through libxmp: $n formats"
