#!/usr/bin/env bash
# Installs what is missing (scripts/install-cross-deps.sh), cross-builds the
# project for aarch64-linux-gnu into build-aarch64 and runs the whole test
# suite under qemu-aarch64 through CTest. Benchmarks are not built: they are
# not run under emulation.
#   QLM_JOBS       parallel build and test jobs (default 2)
#   QLM_BUILD_DIR  build directory (default build-aarch64)
set -euo pipefail
cd "$(dirname "$0")/.."

jobs=${QLM_JOBS:-2}
build=${QLM_BUILD_DIR:-build-aarch64}

bash scripts/install-cross-deps.sh

cmake -S . -B "$build" -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DQLM_BUILD_BENCH=OFF
ninja -C "$build" -j"$jobs"
ctest --test-dir "$build" --output-on-failure -j"$jobs"
