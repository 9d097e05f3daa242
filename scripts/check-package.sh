#!/usr/bin/env bash
# Checks a built Debian package without installing it: its files and
# relations, lintian errors, the desktop entry, the AppStream data and the
# service unit, then starts the program (in the user's folder) and the gateway
# from the unpacked tree.
#   bash scripts/check-package.sh build/velmora_<version>_amd64.deb
set -euo pipefail

deb=${1:?usage: check-package.sh <package.deb>}
work=$(mktemp -d)
gateway_pid=
program_pid=
cleanup() {
    [ -n "$gateway_pid" ] && kill "$gateway_pid" 2>/dev/null || true
    [ -n "$program_pid" ] && kill "$program_pid" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT
root=$work/root
dpkg-deb -x "$deb" "$root"
app=$root/usr/lib/velmora

echo "-- contents"
wanted=(usr/bin/velmora usr/lib/velmora/velmora usr/lib/velmora/server/server
        usr/lib/velmora/generate_certificate usr/share/velmora/examples/plant.cfg
        usr/share/velmora/examples/modbus-demo.cfg usr/share/velmora/modbus-sim.py)
# The guide is built where chmcmd is installed, and then it must be packaged.
command -v chmcmd >/dev/null && wanted+=(usr/lib/velmora/velmora_help.chm)
for f in "${wanted[@]}"; do
    [ -e "$root/$f" ] || { echo "check-package: $f is missing" >&2; exit 1; }
done

echo "-- relations"
# Qt's Russian texts are needed at run time; the guide's viewer and the
# simulator's Python packages are offered.
relation() { # field package
    dpkg-deb -f "$deb" "$1" | tr ',' '\n' | grep -qE "^ *$2( |\$)" ||
        { echo "check-package: $1 lacks $2" >&2; exit 1; }
}
relation Depends qt6-translations-l10n
relation Recommends kchmviewer
relation Suggests python3-pymodbus

echo "-- lintian"
lintian --fail-on error "$deb"

echo "-- desktop entry and AppStream data"
desktop-file-validate "$root"/usr/share/applications/*.desktop
appstreamcli validate --no-net "$root"/usr/share/metainfo/*.metainfo.xml

echo "-- service unit"
# The unit names the installed gateway; point it into the unpacked tree.
unit_dir=$work/units
mkdir -p "$unit_dir"
for unit in "$root"/lib/systemd/system/*.service "$root"/usr/lib/systemd/system/*.service; do
    [ -f "$unit" ] || continue
    sed "s#/usr/lib/velmora#$app#g" "$unit" >"$unit_dir/$(basename "$unit")"
done
systemd-analyze verify --man=no "$unit_dir"/*.service

wait_for() { # file text seconds
    for _ in $(seq $((10 * $3))); do
        grep -q "$2" "$1" 2>/dev/null && return 0
        sleep 0.1
    done
    echo "check-package: \"$2\" did not appear in $1" >&2
    cat "$1" >&2 || true
    return 1
}

echo "-- the program starts from the package, in the user's folder"
export HOME=$work/home QT_QPA_PLATFORM=offscreen
mkdir -p "$HOME/plant"
log="$HOME/Documents/TARN/OPC UA/Log/VelmoraGui.log"
# From a terminal in a folder of the user's, and from a desktop menu, which starts in /.
for start in "$HOME/plant" /; do
    expected=$start
    [ "$start" = / ] && expected=$HOME
    (cd "$start" && exec "$root/usr/bin/velmora") >"$work/program.out" 2>&1 &
    program_pid=$!
    wait_for "$log" "Приложение запущено" 30
    folder=$(readlink "/proc/$program_pid/cwd")
    [ "$folder" = "$expected" ] || { echo "check-package: started in $start, the program works in $folder" >&2; exit 1; }
    kill "$program_pid" && wait "$program_pid" 2>/dev/null || true
    program_pid=
    rm -f "$log"
done

echo "-- the gateway serves the example with the run parameters saved in it"
port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
# The example keeps port 4840; the check moves it to a free one. The file is
# scrambled with a mapping that is its own inverse.
python3 - "$root/usr/share/velmora/examples/plant.cfg" "$work/plant.cfg" "$port" <<'PY'
import sys
def flip(text):
    b = bytearray(text.encode("utf-16-le"))
    b[0::2] = bytes(255 - x for x in b[0::2])
    return b.decode("utf-16-le")
src, dst, port = sys.argv[1:]
clear = flip(open(src, encoding="utf-8").read())
assert "port = 4840\n" in clear, "no run parameters in the example"
open(dst, "w", encoding="utf-8").write(flip(clear.replace("port = 4840\n", f"port = {port}\n")))
PY
"$app/server/server" --from-file "$work/plant.cfg" >"$work/gateway.out" 2>&1 &
gateway_pid=$!
wait_for "$work/gateway.out" "порт $port, тегов" 30
echo "package checks passed"
