# cmake -DNM=<nm> "-DOBJECTS=<object>|<object>|..." -P CheckInstructionSetObjects.cmake
# Fails unless each of the three objects built for an extra x86-64
# instruction set (the YUV warp's SSSE3, AVX2 and AVX-512 rows) defines its
# one entry function and no other global or weak code: the linker may keep
# any unit's copy of a weak function, and code that runs on every processor
# must never end up in one built for a wider instruction set.
cmake_minimum_required(VERSION 3.18)

string(REPLACE "|" ";" objects "${OBJECTS}")
list(FILTER objects INCLUDE REGEX "YuvWarp(Ssse3|Avx2|Avx512)\\.cpp\\.o$")
list(LENGTH objects count)
if(NOT count EQUAL 3)
  message(FATAL_ERROR "expected the SSSE3, AVX2 and AVX-512 objects, found: ${objects}")
endif()
foreach(object IN LISTS objects)
  execute_process(COMMAND ${NM} --defined-only ${object} OUTPUT_VARIABLE text RESULT_VARIABLE code)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "${NM} ${object} failed (${code})")
  endif()
  string(REPLACE "\n" ";" lines "${text}")
  set(code "${lines}")
  list(FILTER code INCLUDE REGEX "^[0-9a-f]* [TWi] ")
  if(NOT code MATCHES "^[0-9a-f]* T _Z[0-9]*WarpRows[A-Za-z0-9]*[^;]*$")
    string(REPLACE ";" "\n" code "${code}")
    message(FATAL_ERROR "${object} defines more code than its one entry:\n${code}")
  endif()
endforeach()
