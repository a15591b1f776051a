#!/usr/bin/env bash
# Installs the dependencies, builds everything and runs every test: once on the normal build and
# once more under AddressSanitizer, which catches use after free and overruns the tests alone
# would pass over. SORVANTEL_SANITIZE=0 skips the second pass.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
BUILD_DIR=${BUILD_DIR:-build}
cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$BUILD_DIR" -j"$(nproc)"
ctest --test-dir "$BUILD_DIR" --output-on-failure -j1

if [ "${SORVANTEL_SANITIZE:-1}" != "0" ]; then
    ASAN_DIR=${ASAN_BUILD_DIR:-build-asan}
    cmake -S . -B "$ASAN_DIR" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
        -DCMAKE_CXX_FLAGS="-fsanitize=address -fno-omit-frame-pointer" \
        -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address"
    cmake --build "$ASAN_DIR" -j"$(nproc)"
    # Windows the tests leave open on purpose are not leaks worth a failure.
    ASAN_OPTIONS=detect_leaks=0:abort_on_error=1 ctest --test-dir "$ASAN_DIR" --output-on-failure -j1
fi
