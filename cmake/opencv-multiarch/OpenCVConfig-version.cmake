# Version of the OpenCV headers under /usr/include/opencv4, which every
# architecture of Debian's multiarch OpenCV packages shares.
set(_qlm_version_header /usr/include/opencv4/opencv2/core/version.hpp)
if(EXISTS ${_qlm_version_header})
  file(STRINGS ${_qlm_version_header} _qlm_version_lines
       REGEX "^#define CV_VERSION_(MAJOR|MINOR|REVISION) +[0-9]+")
  foreach(_qlm_part MAJOR MINOR REVISION)
    string(REGEX REPLACE ".*CV_VERSION_${_qlm_part} +([0-9]+).*" "\\1"
           _qlm_${_qlm_part} "${_qlm_version_lines}")
  endforeach()
  set(PACKAGE_VERSION "${_qlm_MAJOR}.${_qlm_MINOR}.${_qlm_REVISION}")
  if(PACKAGE_FIND_VERSION_MAJOR EQUAL _qlm_MAJOR
     AND NOT PACKAGE_FIND_VERSION VERSION_GREATER PACKAGE_VERSION)
    set(PACKAGE_VERSION_COMPATIBLE TRUE)
  endif()
  if(PACKAGE_FIND_VERSION VERSION_EQUAL PACKAGE_VERSION)
    set(PACKAGE_VERSION_EXACT TRUE)
  endif()
else()
  set(PACKAGE_VERSION "unknown")
  set(PACKAGE_VERSION_UNSUITABLE TRUE)
endif()
