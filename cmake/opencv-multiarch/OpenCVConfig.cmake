# OpenCV modules of Debian's multiarch packages for CMAKE_LIBRARY_ARCHITECTURE,
# for cross builds where libopencv-dev (and with it OpenCV's own CMake
# package) is installed for the host architecture only. Each requested module
# becomes an imported target named like OpenCV's own (opencv_core, ...).
# A module may be present as its runtime library only (libopencv_<m>.so.<version>);
# its headers are the shared ones under /usr/include/opencv4.
set(_qlm_libdir /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE})
set(OpenCV_INCLUDE_DIRS /usr/include/${CMAKE_LIBRARY_ARCHITECTURE}/opencv4 /usr/include/opencv4)
set(OpenCV_LIBS)

foreach(_qlm_module IN LISTS OpenCV_FIND_COMPONENTS)
  find_library(OpenCV_${_qlm_module}_LIBRARY
               NAMES opencv_${_qlm_module} libopencv_${_qlm_module}.so.${OpenCV_VERSION}
               PATHS ${_qlm_libdir} NO_DEFAULT_PATH)
  if(OpenCV_${_qlm_module}_LIBRARY AND NOT TARGET opencv_${_qlm_module})
    add_library(opencv_${_qlm_module} SHARED IMPORTED)
    set_target_properties(opencv_${_qlm_module} PROPERTIES
      IMPORTED_LOCATION ${OpenCV_${_qlm_module}_LIBRARY}
      INTERFACE_INCLUDE_DIRECTORIES "${OpenCV_INCLUDE_DIRS}")
  endif()
  if(TARGET opencv_${_qlm_module})
    set(OpenCV_${_qlm_module}_FOUND TRUE)
    list(APPEND OpenCV_LIBS opencv_${_qlm_module})
  else()
    set(OpenCV_${_qlm_module}_FOUND FALSE)
    if(OpenCV_FIND_REQUIRED_${_qlm_module})
      set(OpenCV_FOUND FALSE)
      string(APPEND OpenCV_NOT_FOUND_MESSAGE
             "libopencv_${_qlm_module} for ${CMAKE_LIBRARY_ARCHITECTURE} not found in ${_qlm_libdir} "
             "(scripts/install-cross-deps.sh installs it). ")
    endif()
  endif()
endforeach()
