#!/usr/bin/env bash
# How small QAZ files are: over every corpus module qaz takes, the total bytes of the originals,
# of xz -9 and zstd -19 of the originals, and of the QAZ files of every sample coding, with the
# encoder's speed (original megabytes a second, one process at a time). Writes docs/sizes.md.
#   scripts/sizes.sh [corpus]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh build
corpus="${1:-../shared/corpus}"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

mapfile -t modules < <(find "$corpus" -type f \( -iname '*.it' -o -iname '*.xm' -o -iname '*.s3m' -o -iname '*.mod' \
  -o -iname '*.mtm' \) | sort)
taken=()
for m in "${modules[@]}"; do
  build/qaz -s "$m" "$work/probe.qaz" 2>/dev/null && taken+=("$m")
done

total() { awk '{s += $1} END {print s + 0}'; }
original=$(for m in "${taken[@]}"; do stat -c %s "$m"; done | total)
xz9=$(for m in "${taken[@]}"; do xz -9 -c "$m" | wc -c; done | total)
zstd19=$(for m in "${taken[@]}"; do zstd -19 -q -c "$m" | wc -c; done | total)

row() { printf '| %s | %s | %.1f%% | %s |\n' "$1" "$2" "$(echo "100 * $2 / $original" | bc -l)" "$3"; }
{
  echo "# QAZ file sizes"
  echo
  echo "The ${#taken[@]} corpus modules qaz takes (of ${#modules[@]}), $original bytes, written by \`scripts/sizes.sh\`."
  echo
  echo "| files | bytes | of the originals | encoding speed |"
  echo "|---|---|---|---|"
  row "originals" "$original" ""
  row "xz -9" "$xz9" ""
  row "zstd -19" "$zstd19" ""
  for coding in auto raw delta predict vorbis mp3; do
    start=$(date +%s.%N)
    bytes=$(for m in "${taken[@]}"; do build/qaz -s -c "$coding" "$m" "$work/out.qaz" && stat -c %s "$work/out.qaz"; done | total)
    seconds=$(echo "$(date +%s.%N) - $start" | bc -l)
    row "qaz -c $coding" "$bytes" "$(printf '%.2f MB/s' "$(echo "$original / 1000000 / $seconds" | bc -l)")"
  done
  # The packer alone, on the bodies (everything but the sample data), against xz -9 of each body.
  declare -A body
  while read -r key value; do body[$key]=$value; done < <(build/body_bench "$corpus")
  echo
  echo "## The packer on the bodies"
  echo
  echo "The body of a QAZ file (song header, orders, pattern tables, tracks, instrument and sample"
  echo "records; the sample data lies outside it) is what the container's LZ packer codes. Over the"
  echo "${body[modules]} modules, written by \`build/body_bench\`:"
  echo
  echo "| bodies | bytes | of the bodies |"
  echo "|---|---|---|"
  for key in body packer xz; do
    printf '| %s | %s | %.1f%% |\n' "$([ "$key" = body ] && echo unpacked || { [ "$key" = xz ] && echo "xz -9, one file each" || echo "the packer"; })" \
      "${body[$key]}" "$(echo "100 * ${body[$key]} / ${body[body]}" | bc -l)"
  done
  echo
  echo "The packer runs at ${body[packer_mb_per_s]} MB/s of body. xz's files carry about 60 bytes of"
  echo "container each; the packer's stream has none."
} > docs/sizes.md
cat docs/sizes.md
