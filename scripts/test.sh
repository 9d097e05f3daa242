#!/usr/bin/env bash
# Installs what is missing, builds everything and runs every test: once in the
# normal build, then builds the Debian package from it and checks that, and
# once more under the address and undefined-behaviour sanitizers.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

jobs=$(nproc)
for preset in default asan; do
    echo "== ${preset} build"
    cmake --preset "${preset}" >/dev/null
    cmake --build --preset "${preset}" -j"${jobs}"
    ctest --preset "${preset}" -j"${jobs}"
    if [ "${preset}" = default ]; then
        echo "== package"
        rm -f build/velmora_*.deb
        cmake --build --preset default --target package
        bash scripts/check-package.sh build/velmora_*.deb
    fi
done
