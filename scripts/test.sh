#!/usr/bin/env bash
# Installs what is missing, builds everything and runs every test.
# Pass --sanitize to run the suite a second time under ASan and UBSan.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

cmake --preset default >/dev/null
cmake --build --preset default -j"$(nproc)"
ctest --preset default -j"$(nproc)"

if [ "${1:-}" = "--sanitize" ]; then
    cmake --preset asan >/dev/null
    cmake --build --preset asan -j"$(nproc)"
    ctest --preset asan -j"$(nproc)"
fi
