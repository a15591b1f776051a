#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (build-fuzz) and runs each for a bounded time from a
# scratch copy of its seeds, so that nothing a run finds is written into the repository. A crash
# or a broken property fails the script; its reproducer lies in build-fuzz/artifacts and can be
# added to the target's seed folder (tests/fuzz/<target>/) as a regression case.
# FUZZ_SECONDS and FUZZ_RUNS bound each target (30 s, 2,000,000 inputs by default).
set -euo pipefail
cd "$(dirname "$0")/.."

FUZZ_DIR=${FUZZ_BUILD_DIR:-build-fuzz}
SECONDS_EACH=${FUZZ_SECONDS:-30}
RUNS_EACH=${FUZZ_RUNS:-2000000}
CXX_FUZZ=${FUZZ_CXX:-$(command -v clang++-14 || command -v clang++)}
TARGETS=(tag_file record_file records_cli register_codec grid_text site_groups helper_input csv_text trend_file project_file row_moment sp_recipe profile_recipe tune_file seal_file seal_request publish_settings rtu_frame)

cmake -S . -B "$FUZZ_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_COMPILER="$CXX_FUZZ" -DSORVANTEL_FUZZ=ON -DSORVANTEL_BUILD_TESTS=OFF
cmake --build "$FUZZ_DIR" -j"${FUZZ_JOBS:-$(nproc)}" --target "${TARGETS[@]/#/fuzz_}"

# Reports in our code stop the run; Qt's own headers are kept quiet by tests/ubsan.supp.
symbolizer=$(command -v llvm-symbolizer-14 || command -v llvm-symbolizer || true)
export ASAN_SYMBOLIZER_PATH=${ASAN_SYMBOLIZER_PATH:-$symbolizer}
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1:suppressions=$PWD/tests/ubsan.supp}

artifacts="$PWD/$FUZZ_DIR/artifacts"
mkdir -p "$artifacts"
failed=()
for target in "${TARGETS[@]}"; do
    corpus="$PWD/$FUZZ_DIR/corpus/$target"
    rm -rf "$corpus"
    mkdir -p "$corpus"
    cp tests/fuzz/"$target"/* "$corpus"/
    log="$PWD/$FUZZ_DIR/fuzz_$target.log"
    status=0
    "$FUZZ_DIR/tests/fuzz/fuzz_$target" -max_total_time="$SECONDS_EACH" -runs="$RUNS_EACH" \
        -print_final_stats=1 -artifact_prefix="$artifacts/$target-" "$corpus" >"$log" 2>&1 ||
        status=$?
    runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$' || true)
    cov=$(grep -o 'cov: [0-9]*' "$log" | tail -1 || true)
    echo "fuzz_$target: ${runs:-?} executions, ${cov:-cov: ?}, status $status"
    if [ "$status" -ne 0 ]; then
        grep -E 'fuzz property broken|ERROR: |runtime error|SUMMARY' "$log" | head -5 || true
        grep -o "Test unit written to .*" "$log" || echo "see $log"
        failed+=("$target")
    fi
done
if [ "${#failed[@]}" -ne 0 ]; then
    echo "fuzzing failed: ${failed[*]}" >&2
    exit 1
fi
