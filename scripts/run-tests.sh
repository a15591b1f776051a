#!/usr/bin/env bash
# Installs the dependencies, builds everything and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
BUILD_DIR=${BUILD_DIR:-build}
cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$BUILD_DIR" -j"$(nproc)"
ctest --test-dir "$BUILD_DIR" --output-on-failure -j1
