# Third-party packages: OpenCV 4 and Android's liblog (the NDK's on Android,
# Debian's android-liblog-dev on Linux hosts, which prints to standard error).
if(ANDROID AND NOT EXISTS "${OpenCV_DIR}/OpenCVConfig.cmake")
  message(FATAL_ERROR "Android build: OpenCV_DIR must name the OpenCV Android SDK's "
                      "sdk/native/jni folder (OpenCVConfig.cmake not found in '${OpenCV_DIR}')")
endif()
find_package(OpenCV 4 REQUIRED COMPONENTS core imgproc features2d calib3d imgcodecs)

if(ANDROID)
  find_library(QLM_LOG_LIBRARY log REQUIRED)
  add_library(QLM::log INTERFACE IMPORTED)
  target_link_libraries(QLM::log INTERFACE ${QLM_LOG_LIBRARY})
else()
  find_path(QLM_LOG_INCLUDE_DIR android/log.h PATHS /usr/include/android NO_DEFAULT_PATH)
  find_library(QLM_LOG_LIBRARY log
               PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android NO_DEFAULT_PATH)
  if(NOT QLM_LOG_INCLUDE_DIR OR NOT QLM_LOG_LIBRARY)
    message(FATAL_ERROR "liblog not found: install android-liblog-dev (scripts/install-deps.sh)")
  endif()
  get_filename_component(QLM_LOG_LIBRARY_DIR ${QLM_LOG_LIBRARY} DIRECTORY)
  add_library(QLM::log INTERFACE IMPORTED)
  target_include_directories(QLM::log SYSTEM INTERFACE ${QLM_LOG_INCLUDE_DIR})
  target_link_libraries(QLM::log INTERFACE ${QLM_LOG_LIBRARY})
  target_link_options(QLM::log INTERFACE "LINKER:-rpath,${QLM_LOG_LIBRARY_DIR}")
endif()

# Header-only JSON for the synthetic scenes' ground truth and the tools.
if(QLM_BUILD_TOOLS OR QLM_BUILD_TESTS OR QLM_BUILD_BENCH OR QLM_BUILD_PYTHON)
  find_package(nlohmann_json 3 REQUIRED)
endif()
