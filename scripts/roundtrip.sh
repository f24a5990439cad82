#!/usr/bin/env bash
# The round trip of every corpus module through qaz and deqaz, judged by libxmp and, where
# libxmp's renders differ, by Schism Tracker (lossless only). Writes docs/roundtrip-<coding>.md for lossless
# (auto, qaz's default), Vorbis (quality 0.4) and Layer III (32 kbit/s: at higher rates few of the corpus's
# 8-bit, 8-22 kHz samples would be smaller than their lossless coding, so few would be lossy).
#   scripts/roundtrip.sh [seconds of audio per render, default 20]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh build
seconds="${1:-20}"
mkdir -p docs
for coding in auto vorbis:0.4 mp3:32; do
  judge=()
  [ "$coding" != auto ] && judge=(--no-schism)  # lossy renders all differ: libxmp's SNR says enough
  build/tests/roundtrip -t "$seconds" -c "$coding" "${judge[@]}" -r tests/tools/roundtrip_reasons.tsv \
    -o "docs/roundtrip-${coding%%:*}.md"
  tail -n 3 "docs/roundtrip-${coding%%:*}.md"
done
