#!/usr/bin/env bash
# Builds Release and measures the line's pacing with 64 K40 controllers on the plant simulator:
#   rtu    over a socat pty pair at 19,200 and at 9,600 baud, the simulator serving RTU and
#          holding each reply as long as the wire would; as fast as the line allows. The round
#          is set against the wire time of its frames and silences, and the simulator tells how
#          many requests came while another exchange was still on its line.
#   tcp    the simulator as a TCP gateway onto a 19,200-baud line: the fixed tick of 60 ms and
#          as fast as the line allows, alternating, three times each: CPU per read answered.
#   dead   as rtu at 19,200 baud with 1 and then 8 controllers dead.
# Usage: bench/run-bench-line.sh rtu|tcp|dead|all [seconds] [warm-up seconds]
# BENCH_BUILD names a Release build already made; BENCH_GATEWAY_BAUD the gateway's line rate for
# tcp (empty: a device that answers at once, with no line behind it).
set -euo pipefail
cd "$(dirname "$0")/.."
REPO=$(pwd)
WHAT=${1:-all}
SECONDS_MEASURED=${2:-30}
WARMUP=${3:-5}
BUILD=${BENCH_BUILD:-$REPO/build-release}
if [[ -z "${BENCH_BUILD:-}" ]]; then
    cmake -S . -B build-release -G Ninja -DCMAKE_BUILD_TYPE=Release -DSORVANTEL_BUILD_TESTS=OFF \
        -DSORVANTEL_BUILD_BENCH=ON >/dev/null
    cmake --build build-release --target bench_line plant-simulator
fi
work=$(mktemp -d)
trap 'kill ${SIM_PID:-0} ${PAIR_PID:-0} ${KEEP_PID:-0} 2>/dev/null || true; rm -rf "$work"' EXIT
PORT=${BENCH_PORT:-5033}

: > "$work/plant.sim"
for n in $(seq 1 64); do
    echo "$n K40 decimal=1 scaled=1 sp=100.0 pv=98.0 tau=20 wander=2" >> "$work/plant.sim"
done
printf '' > "$work/tags.tgn"
for c in $(seq 0 63); do
    for k in 0 1 2; do
        printf ' %d \r\n 1 \r\nTAG%d-%d\r\n %d \r\n 0 \r\n 0 \r\n' $c $((c + 1)) $k $k >> "$work/tags.tgn"
    done
done
cp -r demo/. "$work/app" 2>/dev/null || mkdir -p "$work/app"
cp "$work/tags.tgn" "$work/app/tags.tgn"
mkdir -p "$work/xdg/Brenlock" "$work/run"
chmod 700 "$work/run"

# settings LINK-SECTION PACED
settings() {
    printf '[link]\n%b\ntimeout=1000\n\n[cstatus]\ncupdatetime=60\nasfastaslineallows=%s\n' \
        "$1" "$2" > "$work/xdg/Brenlock/Sorvantel.ini"
}

# simulator ARGS...: started with its commands on a fifo
simulator() {
    rm -f "$work/sim.in"; mkfifo "$work/sim.in"
    "$BUILD/tools/plant-simulator/plant-simulator" --plant "$work/plant.sim" "$@" \
        < "$work/sim.in" > "$work/sim.out" 2>&1 &
    SIM_PID=$!
    sleep 100000 > "$work/sim.in" &
    KEEP_PID=$!
    sleep 0.5
}
stop_simulator() {
    echo line > "$work/sim.in"; sleep 0.3
    grep '^line:' "$work/sim.out" | tail -1
    kill $SIM_PID $KEEP_PID 2>/dev/null || true
    wait $SIM_PID 2>/dev/null || true
}
run() {
    (cd "$work/app" && XDG_CONFIG_HOME="$work/xdg" XDG_RUNTIME_DIR="$work/run" \
        QT_QPA_PLATFORM=${QT_QPA_PLATFORM:-offscreen} \
        "$BUILD/bench/bench_line" "$SECONDS_MEASURED" "$WARMUP")
}
pair() {
    rm -f "$work/ttyA" "$work/ttyB"
    socat -d pty,raw,echo=0,link="$work/ttyA" pty,raw,echo=0,link="$work/ttyB" 2>/dev/null &
    PAIR_PID=$!
    for _ in $(seq 50); do [[ -e "$work/ttyB" ]] && break; sleep 0.1; done
}
rtu() { # BAUD [dead nodes...]
    local baud=$1; shift
    pair
    settings "mode=RTU\nserialport=$(readlink -f "$work/ttyA")\nbaudrate=$baud" True
    local dead=()
    for n in "$@"; do dead+=(--dead "$n"); done
    simulator --rtu "$(readlink -f "$work/ttyB")" --baud "$baud" "${dead[@]}"
    run
    stop_simulator
    kill $PAIR_PID 2>/dev/null || true; wait $PAIR_PID 2>/dev/null || true
}

if [[ $WHAT == rtu || $WHAT == all ]]; then
    for baud in 19200 9600; do
        echo "== RTU at $baud baud, as fast as the line allows"; rtu $baud
    done
fi
if [[ $WHAT == tcp || $WHAT == all ]]; then
    GATEWAY_BAUD=${BENCH_GATEWAY_BAUD-19200}
    simulator --port "$PORT" ${GATEWAY_BAUD:+--baud "$GATEWAY_BAUD"}
    for round in 1 2 3; do
        for paced in False True; do
            echo "== TCP, line ${GATEWAY_BAUD:-none}, as fast as the line allows: $paced, round $round"
            settings "mode=TCP\naddress=127.0.0.1\nport=$PORT" $paced
            run
        done
    done
    stop_simulator
fi
if [[ $WHAT == dead || $WHAT == all ]]; then
    echo "== RTU at 19200 baud, controller 33 dead"; rtu 19200 33
    echo "== RTU at 19200 baud, controllers 5 13 21 29 37 45 53 61 dead"; rtu 19200 5 13 21 29 37 45 53 61
fi
