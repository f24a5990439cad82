#!/usr/bin/env bash
# qaz unpack over the whole corpus set on one and on two jobs, against the I/O floor: copying the
# same output files. Every corpus module qaz reads is packed once first; each phase runs three
# times and the best time is kept.
#   bench/unpack_bench.sh [build dir] [corpus]
set -euo pipefail
build=${1:-build}
corpus=${2:-../shared/corpus}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$build/qaz" pack -r -o "$work/qaz" "$corpus" >/dev/null 2>&1 || true
files=$(find "$work/qaz" -name '*.qaz' | wc -l)

best() {  # best wall time of three runs of the command, in seconds
  local t best=
  for _ in 1 2 3; do
    rm -rf "$work/out"
    /usr/bin/time -f %e -o "$work/time" "$@" >/dev/null 2>&1 || true
    t=$(tail -n 1 "$work/time")
    if [ -z "$best" ] || [ "$(echo "$t < $best" | bc)" = 1 ]; then best=$t; fi
  done
  echo "$best"
}

j1=$(best "$build/qaz" unpack -j 1 -r -o "$work/out" "$work/qaz")
j2=$(best "$build/qaz" unpack -j 2 -r -o "$work/out" "$work/qaz")
"$build/qaz" unpack -r -o "$work/ref" "$work/qaz" >/dev/null 2>&1 || true
floor=$(best cp -r "$work/ref" "$work/out")
bytes=$(du -sb "$work/ref" | cut -f1)
echo "files: $files QAZ files, $((bytes / 1000000)) MB of modules out"
for row in "unpack -j 1:$j1" "unpack -j 2:$j2" "copy (I/O floor):$floor"; do
  t=${row##*:}
  printf '%-18s %6.2f s  %7.0f files/s  %5.1fx the floor\n' "${row%%:*}" "$t" \
    "$(echo "$files / ($t + 0.001)" | bc -l)" "$(echo "$t / ($floor + 0.001)" | bc -l)"
done
