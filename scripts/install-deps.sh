#!/usr/bin/env bash
# Installs the Debian packages this project builds and tests with, and only
# those that are missing. Runs apt-get as root, or through sudo otherwise.
set -euo pipefail

packages=(
  cmake ninja-build g++ clang libclang-rt-14-dev binutils
  libopencv-dev android-liblog-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libcli11-dev nlohmann-json3-dev libjpeg62-turbo-dev
  python3-camera-calibration-parsers
  python3-dev pybind11-dev python3-numpy python3-pytest
)

# A package counts as installed in the native architecture or as an
# architecture-independent one; the cross build's arm64 copies do not count.
native=$(dpkg --print-architecture)
missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status} ${Architecture}\n' "$package" 2>/dev/null || true)
  grep -qE "^install ok installed ($native|all)\$" <<<"$status" || missing+=("$package")
done

if [[ ${#missing[@]} -eq 0 ]]; then
  echo "install-deps: all ${#packages[@]} packages already installed"
  exit 0
fi

sudo_cmd=()
if [[ $(id -u) -ne 0 ]]; then
  command -v sudo >/dev/null || { echo "install-deps: need root or sudo to install: ${missing[*]}" >&2; exit 1; }
  sudo_cmd=(sudo)
fi

echo "install-deps: installing ${missing[*]}"
"${sudo_cmd[@]}" apt-get update -qq
DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
echo "install-deps: done"
