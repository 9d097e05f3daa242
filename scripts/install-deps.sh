#!/usr/bin/env bash
# Installs everything Velmora needs to build, run and test on Debian bookworm.
# Safe to re-run: packages already present are skipped.
set -euo pipefail

if [ "$(id -u)" -ne 0 ]; then
    echo "install-deps.sh: run as root" >&2
    exit 1
fi

export DEBIAN_FRONTEND=noninteractive
here=$(dirname "$0")

PACKAGES=(cmake ninja-build g++ ccache qt6-base-dev qt6-base-dev-tools qt6-translations-l10n libgl-dev libqcustomplot-dev
          xvfb xauth fonts-dejavu-core imagemagick
          libmodbus-dev python3-pymodbus python3-serial python3-serial-asyncio socat
          dpkg-dev file lintian desktop-file-utils appstream)
command -v node >/dev/null || PACKAGES+=(nodejs)
command -v npm >/dev/null || PACKAGES+=(npm)

# The independent OPC UA client of the interoperability tests lives outside
# the source tree, in a cache folder of its own.
NODE_OPCUA_DIR=${VELMORA_NODE_OPCUA_DIR:-/var/cache/velmora/node-opcua}
NODE_OPCUA_VERSION=2.180.0

missing=()
for p in "${PACKAGES[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
need_o6=0
for p in libopen62541-1.4-dev libopen62541-1.4-tools; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || need_o6=1
done

install_node_opcua() {
    [ -f "$NODE_OPCUA_DIR/node_modules/node-opcua-client/package.json" ] && return 0
    mkdir -p "$NODE_OPCUA_DIR"
    npm install --no-audit --no-fund --loglevel=error --prefix "$NODE_OPCUA_DIR" \
        "node-opcua-client@$NODE_OPCUA_VERSION"
}

# open62541 1.4 comes from the next Debian release, pinned low so that
# nothing else is ever taken from there, on the mirror that the machine's own
# sources use. A source added before on another mirror is moved to this one.
next=trixie
src=/etc/apt/sources.list.d/velmora-$next.list
pin=/etc/apt/preferences.d/velmora-$next
sources_changed=0
from_next=(-t "$next")
if [ "$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release | tr -d '"')" = "$next" ]; then
    from_next=() # that release already
elif mirror=$(bash "$here/apt-mirror.sh"); then
    line="deb $mirror $next main"
    if [ "$(cat "$src" 2>/dev/null)" != "$line" ]; then
        echo "$line" >"$src"
        sources_changed=1
    fi
    printf 'Package: *\nPin: release n=%s\nPin-Priority: 100\n' "$next" >"$pin"
elif [ $need_o6 -eq 1 ] && [ ! -f "$src" ]; then
    echo "install-deps.sh: no Debian mirror in /etc/apt/sources.list or /etc/apt/sources.list.d/;" \
        "add this release's source first" >&2
    exit 1
fi

if [ ${#missing[@]} -eq 0 ] && [ $need_o6 -eq 0 ] && [ $sources_changed -eq 0 ]; then
    install_node_opcua
    exit 0
fi

apt-get update -qq
if [ ${#missing[@]} -gt 0 ]; then
    apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
if [ $need_o6 -eq 1 ]; then
    # Its CMake package insists on the folder that the -tools package brings.
    apt-get install -y -qq --no-install-recommends "${from_next[@]}" libopen62541-1.4-dev libopen62541-1.4-tools
fi
install_node_opcua
