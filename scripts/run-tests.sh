#!/usr/bin/env bash
# Installs the dependencies, builds everything and runs every test: once on the normal build and
# once more under AddressSanitizer and UndefinedBehaviorSanitizer, which catch use after free,
# overruns, overflows and bad casts the tests alone would pass over; then every fuzz target for a
# bounded time. SORVANTEL_SANITIZE=0 skips the second pass, SORVANTEL_FUZZ=0 the fuzzing.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
BUILD_DIR=${BUILD_DIR:-build}
cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$BUILD_DIR" -j"$(nproc)"
ctest --test-dir "$BUILD_DIR" --output-on-failure -j1

if [ "${SORVANTEL_SANITIZE:-1}" != "0" ]; then
    # AddressSanitizer and UndefinedBehaviorSanitizer together. Every check stops the run at its
    # first report, but for the enum check, which is left recoverable only so that the suppression
    # file can name the one report of Qt's own header; halt_on_error still stops the run on any
    # enum report the file does not name. (A suppression is ignored for a check that cannot
    # recover.)
    ASAN_DIR=${ASAN_BUILD_DIR:-build-asan}
    SANITIZE="-fsanitize=address,undefined -fno-sanitize-recover=all -fsanitize-recover=enum"
    cmake -S . -B "$ASAN_DIR" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
        -DCMAKE_CXX_FLAGS="$SANITIZE -fno-omit-frame-pointer" \
        -DCMAKE_EXE_LINKER_FLAGS="$SANITIZE"
    cmake --build "$ASAN_DIR" -j"$(nproc)"
    # Windows the tests leave open on purpose are not leaks worth a failure.
    ASAN_OPTIONS=detect_leaks=0:abort_on_error=1 \
    UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1:suppressions="$PWD/tests/ubsan.supp" \
        ctest --test-dir "$ASAN_DIR" --output-on-failure -j1
fi

# Last, each fuzz target of the readers of outside data for a bounded time, built with clang in
# build-fuzz (scripts/run-fuzz.sh). SORVANTEL_FUZZ=0 skips them.
if [ "${SORVANTEL_FUZZ:-1}" != "0" ]; then
    bash scripts/run-fuzz.sh
fi
