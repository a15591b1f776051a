#!/usr/bin/env bash
# Builds Release and runs a live-plant benchmark: 64 controllers (K40, K8 and K20 mixed) on the
# plant simulator, scanned every 60 ms, with all sixteen bank windows open (banks) or all eight
# trend windows of twelve pens (trends), or both at once (plant). Prints the workstation's CPU share and resident memory
# over the measured window (default 60 s). Offscreen unless QT_QPA_PLATFORM says otherwise.
# publish: the banks' run without publishing, with it, and with it to a broker stopped (SIGSTOP)
# after the warm-up, side by side.
# Usage: bench/run-bench-live.sh banks|trends|plant|publish [seconds] [warm-up seconds]
# BENCH_BUILD names a Release build already made (an older tree's, to compare side by side).
set -euo pipefail
cd "$(dirname "$0")/.."
REPO=$(pwd)
case "${1:-}" in
banks | trends) BENCH=bench_$1 EXTRA= ;;
plant) BENCH=bench_trends EXTRA=banks ;;
publish) BENCH=bench_publish EXTRA= ;;
*) echo "usage: $0 banks|trends|plant|publish [seconds] [warm-up seconds]" >&2; exit 2 ;;
esac
shift
BUILD=${BENCH_BUILD:-$REPO/build-release}
if [[ -z "${BENCH_BUILD:-}" ]]; then
    cmake -S . -B build-release -G Ninja -DCMAKE_BUILD_TYPE=Release -DSORVANTEL_BUILD_TESTS=OFF \
        -DSORVANTEL_BUILD_BENCH=ON >/dev/null
    cmake --build build-release --target "$BENCH" plant-simulator
fi
work=$(mktemp -d)
trap 'kill -CONT ${BROKER_PID:-0} 2>/dev/null; kill ${SIM_PID:-0} ${BROKER_PID:-0} 2>/dev/null || true; rm -rf "$work"' EXIT
PORT=${BENCH_PORT:-5031}

# The plant: every fourth controller a profiler, K8 and K20 in turn.
: > "$work/plant.sim"
for n in $(seq 1 64); do
    if (( n % 4 == 1 )); then
        fam=$(( (n / 4) % 2 == 0 ? 8 : 20 ))
        echo "$n K$fam sp=40.0 pv=39.0 tau=30 profile=60.0:5:20,85.0:10:40" >> "$work/plant.sim"
    else
        echo "$n K40 decimal=1 scaled=1 sp=100.0 pv=98.0 alarm1=105.0 tau=20 wander=2" >> "$work/plant.sim"
    fi
done
# tags.tgn of the same plant, every controller enabled.
printf '' > "$work/tags.tgn"
for c in $(seq 0 63); do
    n=$((c + 1))
    if (( n % 4 == 1 )); then t=$(( (n / 4) % 2 == 0 ? 1 : 2 )); else t=0; fi
    for k in 0 1 2; do
        printf ' %d \r\n 1 \r\nTAG%d-%d\r\n %d \r\n %d \r\n 0 \r\n' $c $n $k $k $t >> "$work/tags.tgn"
    done
done
cp -r demo/. "$work/app" 2>/dev/null || mkdir -p "$work/app"
cp "$work/tags.tgn" "$work/app/tags.tgn"
mkdir -p "$work/xdg/Brenlock" "$work/run"
chmod 700 "$work/run"
cat > "$work/xdg/Brenlock/Sorvantel.ini" <<INI
[link]
mode=TCP
address=127.0.0.1
port=$PORT
timeout=1000

[cstatus]
cupdatetime=60
INI

"$BUILD/tools/plant-simulator/plant-simulator" --plant "$work/plant.sim" --port "$PORT" </dev/null >/dev/null &
SIM_PID=$!
sleep 0.5
cd "$work/app"
run() {
    XDG_CONFIG_HOME="$work/xdg" XDG_RUNTIME_DIR="$work/run" QT_QPA_PLATFORM=${QT_QPA_PLATFORM:-offscreen} \
        ${BENCH_WRAP:-} "$BUILD/bench/$BENCH" "${1:-60}" "${2:-5}" $EXTRA "${@:3}"
}
if [[ "$BENCH" != bench_publish ]]; then
    run "${1:-60}" "${2:-5}"
    exit
fi
MQTT_PORT=${BENCH_MQTT_PORT:-5032}
printf 'listener %s 127.0.0.1\nallow_anonymous true\npersistence false\n' "$MQTT_PORT" >"$work/mosquitto.conf"
/usr/sbin/mosquitto -c "$work/mosquitto.conf" >/dev/null 2>&1 &
BROKER_PID=$!
sleep 0.5
for round in 1 2 3; do
    echo "== publishing off, round $round"; run "${1:-60}" "${2:-5}"
    echo "== publishing on, round $round"; run "${1:-60}" "${2:-5}" "$MQTT_PORT"
done
echo "== publishing on, the broker stopped after the warm-up"
( sleep "$(( ${2:-5} + 2 ))"; kill -STOP $BROKER_PID ) &
run "${1:-60}" "${2:-5}" "$MQTT_PORT"
kill -CONT $BROKER_PID
