#!/usr/bin/env bash
# Builds libQLM_DualCalibration_Service.so for Android arm64-v8a into
# build-android with the NDK's CMake toolchain file, against the OpenCV
# Android SDK and the NDK's liblog. Tests, benchmarks and tools are off there.
#   ANDROID_NDK_HOME    the NDK's root folder (has build/cmake/android.toolchain.cmake)
#   OPENCV_ANDROID_SDK  the OpenCV Android SDK's root folder (has sdk/native/jni)
#   ANDROID_PLATFORM    minimum API level (default android-24)
# Exits with 2, saying what is missing, when either folder is not usable.
set -euo pipefail
cd "$(dirname "$0")/.."

missing=0
require_file() {  # <variable name> <value> <file inside it>
  if [ -z "$2" ]; then
    echo "build-android: $1 is not set" >&2
    missing=1
  elif [ ! -f "$2/$3" ]; then
    echo "build-android: $1=$2 has no $3" >&2
    missing=1
  fi
}
require_file ANDROID_NDK_HOME "${ANDROID_NDK_HOME:-}" build/cmake/android.toolchain.cmake
require_file OPENCV_ANDROID_SDK "${OPENCV_ANDROID_SDK:-}" sdk/native/jni/OpenCVConfig.cmake
if [ "$missing" -ne 0 ]; then
  echo "build-android: set ANDROID_NDK_HOME to an Android NDK and OPENCV_ANDROID_SDK to an OpenCV Android SDK" >&2
  exit 2
fi

cmake -S . -B build-android -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE="$ANDROID_NDK_HOME/build/cmake/android.toolchain.cmake" \
  -DANDROID_ABI=arm64-v8a \
  -DANDROID_PLATFORM="${ANDROID_PLATFORM:-android-24}" \
  -DANDROID_STL=c++_shared \
  -DOpenCV_DIR="$OPENCV_ANDROID_SDK/sdk/native/jni" \
  -DCMAKE_BUILD_TYPE=Release
ninja -C build-android -j"${QLM_JOBS:-2}" QLM_DualCalibration_Service
