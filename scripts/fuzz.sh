#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and the sanitizers, replays each
# seed corpus under fuzz/corpus/<Name>/, then fuzzes each target for the
# given number of seconds (default 60). A crash fails the run and leaves its
# input in build-fuzz/artifacts/; fixed crashes become corpus files.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}

bash scripts/install-deps.sh
CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQLM_FUZZ=ON \
  -DQLM_BUILD_TESTS=OFF -DQLM_BUILD_BENCH=OFF -DQLM_BUILD_TOOLS=OFF
cmake --build build-fuzz -j "$(nproc)"

mkdir -p build-fuzz/artifacts
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for corpus in fuzz/corpus/*/; do
  name=$(basename "$corpus")
  fuzzer=build-fuzz/fuzz/$name
  scratch=$work/$name
  mkdir -p "$scratch"
  echo "fuzz: $name: replaying $(ls "$corpus" | wc -l) corpus files"
  "$fuzzer" -runs=0 -artifact_prefix=build-fuzz/artifacts/ "$corpus"
  echo "fuzz: $name: fuzzing for ${seconds}s"
  "$fuzzer" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=4096 -print_final_stats=1 \
    -artifact_prefix=build-fuzz/artifacts/ "$scratch" "$corpus"
done
