#!/usr/bin/env bash
# Builds the detection benchmark in a Release tree (build-bench/, or the
# folder named by QLM_BENCH_BUILD_DIR) and runs it; every argument goes to
# the benchmark (--pairs N, --only SUBSTRING, --timeout-s S, --seed N,
# --out DIR; --help lists them). The full run takes about 45 minutes on two
# cores; --pairs 3 --only baseline takes seconds.
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${QLM_BENCH_BUILD_DIR:-build-bench}

bash scripts/install-deps.sh
cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DQLM_BUILD_TESTS=OFF >/dev/null
cmake --build "$build_dir" -j "$(nproc)" --target DetectionBenchmark

# The benchmark's output folder: its default, or the last --out given.
out=bench-results
args=("$@")
for ((i = 0; i < ${#args[@]}; ++i)); do
  case "${args[i]}" in
    --out) out=${args[i + 1]:-$out} ;;
    --out=*) out=${args[i]#--out=} ;;
  esac
done

"$build_dir"/bench/DetectionBenchmark "$@"
if [[ -f "$out/detection.txt" ]]; then
  echo "detection-benchmark: table $out/detection.txt (and detection.csv), plot $out/detection.png"
fi
