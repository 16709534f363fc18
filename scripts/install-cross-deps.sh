#!/usr/bin/env bash
# Installs what the AArch64 cross build and its emulated test run need, and
# nothing that is already there: Debian's aarch64 cross compiler, qemu's user
# mode emulator, and arm64 multiarch packages of OpenCV, liblog and
# GoogleTest. Safe to run again; it says what it does, and it never lets apt
# remove a package (the native build's packages stay as they are).
#
# Only part of OpenCV is co-installable across architectures: libopencv-dev
# (which also ships OpenCVConfig.cmake) is not, and the arm64 -dev packages of
# features2d, calib3d and imgcodecs pull highgui/imgcodecs, whose GDAL, GDCM
# and OpenEXR dependencies would replace the amd64 ones. So the arm64 side
# takes the core and imgproc -dev packages plus the features2d and calib3d
# runtime libraries; their headers are the native -dev packages' (the same
# files), and cmake/opencv-multiarch/ describes the modules to CMake.
# imgcodecs (read and written by the tools and the test scenes) needs GDAL,
# which is single-architecture: its arm64 runtime library and the few
# single-architecture libraries below it are unpacked with dpkg-deb into
# /opt/qlm-aarch64 instead, where the toolchain file looks for them; their
# other dependencies are ordinary multiarch packages.
set -euo pipefail

readonly HOST_PACKAGES=(
  g++-aarch64-linux-gnu qemu-user
  libopencv-features2d-dev libopencv-calib3d-dev
  libcli11-dev nlohmann-json3-dev
)
# libc6:arm64 also gives the emulator the loader and C runtime that the arm64
# OpenCV libraries were built against.
readonly ARM64_PACKAGES=(
  libc6 libopencv-core-dev libopencv-imgproc-dev
  libopencv-features2d406 libopencv-calib3d406
  android-liblog-dev libgtest-dev libjpeg62-turbo-dev
)
readonly UNPACKED_PACKAGES=(
  libopencv-imgcodecs406 libgdal32 libarmadillo11 libhdf4-0-alt libogdi4.1
)
# Required by libgdal32 as a package, but only holds optional GDAL drivers.
readonly UNPACKED_SKIPPED=(gdal-plugins)
readonly UNPACKED_ROOT=/opt/qlm-aarch64
DOWNLOAD_DIR=

say() { echo "install-cross-deps: $*"; }

as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    say "need root or sudo to run: $*" >&2
    exit 1
  fi
}

is_installed() {
  [ "$(dpkg-query -W -f='${Status}' "$1" 2>/dev/null)" = "install ok installed" ]
}

# Architecture-independent packages are installed without a qualifier; a
# native (amd64) package of the same name does not count.
is_installed_for_arm64() {
  is_installed "$1:arm64" ||
    { is_installed "$1" && [ "$(dpkg-query -W -f='${Architecture}' "$1" 2>/dev/null)" = all ]; }
}

has_candidate() {
  local candidate
  candidate=$(apt-cache policy "$1" 2>/dev/null | awk '/Candidate:/ {print $2}')
  [ -n "$candidate" ] && [ "$candidate" != "(none)" ]
}

have_arm64_lists() {
  compgen -G "/var/lib/apt/lists/*binary-arm64_Packages*" >/dev/null
}

ensure_arm64_architecture() {
  if dpkg --print-foreign-architectures | grep -qx arm64; then
    say "arm64 is already a foreign architecture"
  else
    say "adding arm64 as a foreign architecture"
    as_root dpkg --add-architecture arm64
  fi
}

missing_packages() {
  local package
  for package in "${HOST_PACKAGES[@]}"; do
    is_installed "$package" || echo "$package"
  done
  for package in "${ARM64_PACKAGES[@]}"; do
    is_installed "$package:arm64" || echo "$package:arm64"
  done
}

# Refreshes the package lists only when arm64 lists are absent or a missing
# package has no install candidate in the current lists.
update_lists_if_needed() {
  local package
  if have_arm64_lists; then
    for package in "$@"; do
      if ! has_candidate "$package"; then
        say "no candidate for $package in the current lists: apt-get update"
        as_root apt-get update -q
        return
      fi
    done
    say "package lists are current enough, no update"
  else
    say "no arm64 package lists yet: apt-get update"
    as_root apt-get update -q
  fi
}

install_packages() {
  [ "$#" -eq 0 ] && return 0
  say "missing: $*"
  update_lists_if_needed "$@"
  as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -q --no-install-recommends --no-remove "$@"
  say "installed: $*"
}

candidate_versions() {
  local package
  for package in "${UNPACKED_PACKAGES[@]}"; do
    echo "$package $(apt-cache policy "$package:arm64" | awk '/Candidate:/ {print $2}')"
  done
}

# First alternative of every dependency of the downloaded packages, without
# versions, less the packages unpacked here and the skipped ones.
unpacked_dependencies() {
  local deb
  for deb in "$1"/*.deb; do dpkg-deb -f "$deb" Depends; done |
    tr ',' '\n' | sed 's/|.*//; s/(.*)//; s/[[:space:]]//g' | sort -u |
    grep -vxF -f <(printf '%s\n' "${UNPACKED_PACKAGES[@]}" "${UNPACKED_SKIPPED[@]}")
}

# Downloads the single-architecture packages and unpacks them into
# UNPACKED_ROOT, with their dependency list, unless the stamp shows that the
# current candidates are already there.
unpack_single_arch_packages() {
  local stamp="$UNPACKED_ROOT/packages.txt"
  update_lists_if_needed "${UNPACKED_PACKAGES[@]/%/:arm64}"
  if [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$(candidate_versions)" ]; then
    say "$UNPACKED_ROOT is up to date"
    return
  fi
  DOWNLOAD_DIR=$(mktemp -d)
  trap 'rm -rf "$DOWNLOAD_DIR"' EXIT
  say "downloading ${UNPACKED_PACKAGES[*]} (arm64) to unpack into $UNPACKED_ROOT"
  (cd "$DOWNLOAD_DIR" && chmod 777 . && apt-get download -q "${UNPACKED_PACKAGES[@]/%/:arm64}")
  as_root rm -rf "$UNPACKED_ROOT"
  as_root mkdir -p "$UNPACKED_ROOT"
  local deb
  for deb in "$DOWNLOAD_DIR"/*.deb; do as_root dpkg-deb -x "$deb" "$UNPACKED_ROOT"; done
  unpacked_dependencies "$DOWNLOAD_DIR" | as_root tee "$UNPACKED_ROOT/dependencies.txt" >/dev/null
  candidate_versions | as_root tee "$stamp" >/dev/null
  say "unpacked into $UNPACKED_ROOT: ${UNPACKED_PACKAGES[*]}"
}

# The unpacked libraries' own dependencies are ordinary arm64 packages.
install_unpacked_dependencies() {
  local dependency missing=()
  while read -r dependency; do
    is_installed_for_arm64 "$dependency" || missing+=("$dependency:arm64")
  done <"$UNPACKED_ROOT/dependencies.txt"
  install_packages "${missing[@]}"
}

main() {
  ensure_arm64_architecture
  local missing
  mapfile -t missing < <(missing_packages)
  if [ "${#missing[@]}" -eq 0 ]; then
    say "all packages are installed"
  else
    install_packages "${missing[@]}"
  fi
  unpack_single_arch_packages
  install_unpacked_dependencies
}

main "$@"
