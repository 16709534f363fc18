#!/usr/bin/env bash
# The main job: installs what is missing, builds the library, its tool and
# the Python module qlm (build/python), and runs the tool's demonstration on
# generated sample data.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc)" --target qlm-calib QLM_DualCalibration_Service qlm
build/tools/qlm-calib version
build/tools/qlm-calib demo
