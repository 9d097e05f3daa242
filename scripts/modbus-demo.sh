#!/usr/bin/env bash
# Starts a simulated Modbus TCP device on 127.0.0.1:1502 serving the register
# map of examples/modbus-demo.cfg, its values changing all the time. Then open
# examples/modbus-demo.cfg in Velmora, start the server from the program and
# turn monitoring on; or pass --gateway to run the bundled gateway on the
# example here as well (OPC UA on port 4840). Ctrl+C ends everything.
set -euo pipefail
cd "$(dirname "$0")/.."

gateway=${VELMORA_GATEWAY:-build/bin/server/server}
pids=()
trap 'kill "${pids[@]}" 2>/dev/null || true; wait 2>/dev/null || true' EXIT INT TERM

/usr/bin/python3 scripts/modbus-sim.py --tcp 1502 --demo >/dev/null &
pids+=($!)
echo "Modbus TCP simulator on 127.0.0.1:1502 (unit 1), demo register map"

if [ "${1:-}" = --gateway ]; then
    [ -x "$gateway" ] || { echo "no gateway at $gateway: build it first (cmake --build build --target server)" >&2; exit 1; }
    sleep 1 # the simulator's start, so that the first poll finds it
    "$gateway" examples/modbus-demo.cfg 4840 info true "" "" "" &
    pids+=($!)
    echo "gateway on opc.tcp://127.0.0.1:4840, polling the simulator"
fi
wait
