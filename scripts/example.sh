#!/usr/bin/env bash
# Sets up and builds DEQAZ, then converts the bundled example QAZ file (an IT module).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh build
mkdir -p out
./build/deqaz -y examples/example.qaz out/example.it
echo "Written: out/example.it"
