#!/usr/bin/env bash
# Installs the dependencies, builds, prepares a demo application directory, starts the plant
# simulator and an MQTT broker on loopback, and starts the workstation in it, publishing. The user's own settings are not touched: the demo
# keeps its settings inside its own directory.
set -euo pipefail
cd "$(dirname "$0")/.."
REPO=$(pwd)

bash scripts/install-deps.sh
BUILD_DIR=${BUILD_DIR:-build-release}
cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=Release -DSORVANTEL_BUILD_TESTS=OFF
cmake --build "$BUILD_DIR" -j"$(nproc)"
bash scripts/install-accounts.sh "$BUILD_DIR"

DEMO_DIR=${SORVANTEL_DEMO_DIR:-$HOME/sorvantel-demo}
PORT=${SORVANTEL_DEMO_PORT:-5020}
MQTT_PORT=${SORVANTEL_DEMO_MQTT_PORT:-1884}
if [ ! -f "$DEMO_DIR/tags.tgn" ]; then
    mkdir -p "$DEMO_DIR"
    cp -r demo/. "$DEMO_DIR/"
    find "$DEMO_DIR" -name .keep -delete
fi

# The demo's settings store lives in the demo directory.
export XDG_CONFIG_HOME="$DEMO_DIR/.config"
INI="$XDG_CONFIG_HOME/Brenlock/Sorvantel.ini"
mkdir -p "$(dirname "$INI")"
if [ ! -f "$INI" ]; then
    cat > "$INI" <<INI
[link]
mode=TCP
address=127.0.0.1
port=$PORT
timeout=1000

[cstatus]
galmlogging=True

[settings]
mainleft=600
maintop=600
mainwidth=18000
mainheight=12600
INI
fi

# Publishing on, to the demo's own broker (a site points the workstation at its own).
if ! grep -qi '^\[publishing\]' "$INI"; then
    cat >> "$INI" <<INI

[publishing]
enabled=True
host=127.0.0.1
port=$MQTT_PORT
site=demo
station=station1
maxinterval=30
INI
fi

# Debian's broker with a configuration of the demo's own, on loopback only; a broker the system
# runs as a service (port 1883) is left as it is.
cat > "$DEMO_DIR/mosquitto.conf" <<CONF
listener $MQTT_PORT 127.0.0.1
allow_anonymous true
persistence false
CONF
/usr/sbin/mosquitto -c "$DEMO_DIR/mosquitto.conf" >"$DEMO_DIR/mosquitto.log" 2>&1 &
BROKER_PID=$!

# A background job of a script reads /dev/null unless told otherwise; the simulator is to take
# its commands from this terminal.
exec 3<&0
"$REPO/$BUILD_DIR/tools/plant-simulator/plant-simulator" --plant "$DEMO_DIR/plant.sim" --port "$PORT" --baud 19200 <&3 &
SIM_PID=$!
trap 'kill $SIM_PID $BROKER_PID 2>/dev/null || true' EXIT
sleep 0.5

echo "Sorvantel demo in $DEMO_DIR, plant simulator on 127.0.0.1:$PORT (pid $SIM_PID)"
echo "Broker on 127.0.0.1:$MQTT_PORT (pid $BROKER_PID); to watch the plant live, run:"
echo "    mosquitto_sub -h 127.0.0.1 -p $MQTT_PORT -t 'sorvantel/#' -v"
echo "Type simulator commands such as 'dead 3' or 'alive 3' here while the workstation runs."
cd "$DEMO_DIR"
"$REPO/$BUILD_DIR/src/sorvantel"
