#!/usr/bin/env bash
# Installs what is missing, builds the program and starts it from build/bin,
# where it finds its gateway, certificate tool and help file, in the
# repository's folder, where its open dialog starts (examples/ is there).
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

cmake --preset default >/dev/null
cmake --build --preset default -j"$(nproc)"
exec build/bin/velmora
