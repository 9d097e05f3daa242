#!/usr/bin/env bash
# Installs what is missing, builds the program and starts it from build/bin,
# where it finds its gateway, certificate tool and help file.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

cmake --preset default >/dev/null
cmake --build --preset default -j"$(nproc)"
cd build/bin
exec ./velmora
