#!/usr/bin/env bash
# The round trip of every corpus module through qaz and deqaz, judged by libxmp and, where
# libxmp's renders differ, by Schism Tracker (lossless only). Writes docs/roundtrip-<coding>.md for lossless
# (predict), Vorbis and Layer III coding.
#   scripts/roundtrip.sh [seconds of audio per render, default 20]
set -euo pipefail
cd "$(dirname "$0")/.."
DEQAZ_EXTRA_PACKAGES="schism" scripts/setup.sh build
seconds="${1:-20}"
mkdir -p docs
for coding in predict vorbis:0.4 mp3:128; do
  judge=()
  [ "$coding" != predict ] && judge=(--no-schism)  # lossy renders all differ: libxmp's SNR says enough
  build/tests/roundtrip -t "$seconds" -c "$coding" "${judge[@]}" -r tests/tools/roundtrip_reasons.tsv \
    -o "docs/roundtrip-${coding%%:*}.md"
  tail -n 3 "docs/roundtrip-${coding%%:*}.md"
done
