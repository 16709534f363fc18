# Cross build for 64-bit ARM Linux with Debian's cross compiler and the arm64
# multiarch packages (scripts/install-cross-deps.sh installs both). Tests run
# under qemu's user-mode emulator through CTest.
#   cmake -S . -B build-aarch64 -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# Libraries, headers and packages come from the cross toolchain's own tree
# and from the multiarch directories of the host (/usr/lib/aarch64-linux-gnu);
# programs such as readelf stay the host's.
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# OpenCV's imgcodecs and the single-architecture libraries below it (GDAL and
# a few more) are unpacked into their own tree, outside the multiarch
# directories; the linker and the emulated loader are told where.
set(QLM_AARCH64_UNPACKED_ROOT /opt/qlm-aarch64)
list(APPEND CMAKE_FIND_ROOT_PATH ${QLM_AARCH64_UNPACKED_ROOT})
string(JOIN ":" QLM_AARCH64_UNPACKED_LIBS
       ${QLM_AARCH64_UNPACKED_ROOT}/usr/lib/aarch64-linux-gnu ${QLM_AARCH64_UNPACKED_ROOT}/usr/lib)
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${QLM_AARCH64_UNPACKED_LIBS}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-Wl,-rpath-link,${QLM_AARCH64_UNPACKED_LIBS}")

# Under the emulator, programs take the loader and the C/C++ runtime from the
# arm64 multiarch packages (libc6:arm64, pulled in by OpenCV's), the ones the
# OpenCV libraries were built against. The cross toolchain's older copy under
# /usr/aarch64-linux-gnu serves linking only: running OpenCV on it hangs.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L / -E LD_LIBRARY_PATH=${QLM_AARCH64_UNPACKED_LIBS})

# Debian ships OpenCV's CMake package only in libopencv-dev, which cannot be
# installed for a second architecture; describe the multiarch modules instead.
if(NOT EXISTS /usr/lib/aarch64-linux-gnu/cmake/opencv4/OpenCVConfig.cmake)
  set(OpenCV_DIR "${CMAKE_CURRENT_LIST_DIR}/opencv-multiarch" CACHE PATH "OpenCV package directory")
endif()
