#!/usr/bin/env bash
# Builds Release and runs the records benchmark, then openssl over the same bytes as the floor:
# AES-128-CTR over the plain text (openssl enc has no GCM; CTR is GCM without its tag) and a
# SHA-256 of the enciphered file.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build-release -G Ninja -DCMAKE_BUILD_TYPE=Release -DSORVANTEL_BUILD_TESTS=OFF \
    -DSORVANTEL_BUILD_BENCH=ON >/dev/null
cmake --build build-release --target bench_records
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
./build-release/bench/bench_records "${1:-86400}" "$work"
echo "--- floor: openssl over the same bytes"
key=000102030405060708090a0b0c0d0e0f
iv=000102030405060708090a0b0c0d0e0f
TIMEFORMAT='%3R s'
echo -n "openssl enc -aes-128-ctr, whole plain file: "
time openssl enc -aes-128-ctr -K $key -iv $iv -in "$work/plain.txt" -out "$work/ctr.bin"
echo -n "openssl enc -aes-128-ctr, one process a line (first 1000): "
time (head -n 1000 "$work/plain.txt" | while IFS= read -r line; do
    printf '%s' "$line" | openssl enc -aes-128-ctr -K $key -iv $iv >/dev/null
done)
echo -n "openssl dgst -sha256 of data.slg: "
time openssl dgst -sha256 "$work/data.slg" >/dev/null
openssl dgst -sha256 "$work/data.slg"
