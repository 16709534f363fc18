#!/usr/bin/env bash
# Cross-builds the project for aarch64-linux-gnu into build-aarch64 and runs
# the whole test suite under qemu-aarch64 through CTest. Needs what
# scripts/install-cross-deps.sh installs. Benchmarks are not built: they are
# not run under emulation. Nor are the command-line tools and their tests:
# they read image files through OpenCV's imgcodecs, whose arm64 package cannot
# be installed beside the amd64 one (its GDAL, GDCM and OpenEXR dependencies
# are single-architecture), and they are host programs, not part of the
# shipped library.
#   QLM_JOBS     parallel build and test jobs (default 2)
#   QLM_BUILD_DIR build directory (default build-aarch64)
set -euo pipefail
cd "$(dirname "$0")/.."

jobs=${QLM_JOBS:-2}
build=${QLM_BUILD_DIR:-build-aarch64}

for tool in aarch64-linux-gnu-g++ qemu-aarch64; do
  if ! command -v "$tool" >/dev/null; then
    echo "test-aarch64: $tool not found: run scripts/install-cross-deps.sh" >&2
    exit 2
  fi
done

cmake -S . -B "$build" -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DQLM_BUILD_BENCH=OFF \
  -DQLM_BUILD_TOOLS=OFF
ninja -C "$build" -j"$jobs"
ctest --test-dir "$build" --output-on-failure -j"$jobs"
