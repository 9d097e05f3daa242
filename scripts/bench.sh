#!/usr/bin/env bash
# Builds in release mode, runs every benchmark and prints one table:
# case, our figure, the peer's figure where there is one (both medians of
# BENCH_RUNS runs, at least 5, ours and the peer's in turn), the median
# ratio, its spread, the target and whether it was met. Each benchmark's own
# output goes to build-release/bench-logs/.
set -euo pipefail
cd "$(dirname "$0")/.."

bin=build-release/bin
logs=build-release/bench-logs

bash scripts/install-deps.sh
cmake --preset release >/dev/null
mkdir -p "$logs"
echo "building (release) ..." >&2
cmake --build --preset release -j"$(nproc)" >"$logs/build.log" 2>&1 || {
    tail -30 "$logs/build.log" >&2
    exit 1
}
export QT_QPA_PLATFORM=offscreen
export BENCH_RUNS=${BENCH_RUNS:-5}
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
export HOME="$home"

rows=()
for bench in "$bin"/bench_*; do
    name=$(basename "$bench")
    echo "running $name ..." >&2
    if ! (cd "$bin" && "./$name") >"$logs/$name.log" 2>&1; then
        echo "  $name missed a target or failed; see $logs/$name.log" >&2
    fi
    while IFS= read -r line; do
        rows+=("${line#BENCH	}")
    done < <(grep '^BENCH	' "$logs/$name.log" || true)
done

cpu=$(grep -m1 '^model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ *//')
echo "host: ${cpu:-unknown CPU}, $(nproc) cores; runs of each case: ${BENCH_RUNS:-5}"
{
    printf 'case\tours\tpeer\tratio\tspread (runs)\ttarget\tresult\n'
    printf '%s\n' "${rows[@]}"
} | column -t -s $'\t'
! printf '%s\n' "${rows[@]}" | grep -q 'FAIL$'
