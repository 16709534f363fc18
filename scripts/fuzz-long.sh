#!/usr/bin/env bash
# Long run of one libFuzzer target: builds the targets like scripts/fuzz.sh,
# then fuzzes the named target (default DistortionTableFuzzer) until it has
# executed the given number of inputs (default 10500000) and prints
# libFuzzer's final statistics. Meant to run at low priority beside other
# work, e.g. nice -n 19 scripts/fuzz-long.sh; CI keeps the short runs.
set -euo pipefail
cd "$(dirname "$0")/.."
name=${1:-DistortionTableFuzzer}
runs=${2:-10500000}

bash scripts/install-deps.sh
CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQLM_FUZZ=ON \
  -DQLM_BUILD_TESTS=OFF -DQLM_BUILD_BENCH=OFF -DQLM_BUILD_TOOLS=OFF
cmake --build build-fuzz -j "$(nproc)" --target "$name"

mkdir -p build-fuzz/artifacts
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
echo "fuzz-long: $name: $runs executions"
start=$(date +%s)
"build-fuzz/fuzz/$name" -runs="$runs" -timeout=10 -rss_limit_mb=4096 -print_final_stats=1 \
  -artifact_prefix=build-fuzz/artifacts/ "$scratch" "fuzz/corpus/$name"
echo "fuzz-long: $name: done in $(($(date +%s) - start)) s"
