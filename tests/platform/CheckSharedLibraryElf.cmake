# cmake -DREADELF=<readelf> -DLIBRARY=<.so> -DMACHINE=<readelf machine name> -P CheckSharedLibraryElf.cmake
# Fails unless the library is an ELF file for MACHINE, its dynamic symbol
# table defines exactly the four entry points, and every LOAD segment is
# aligned to 16 KB.
cmake_minimum_required(VERSION 3.18)

set(expected_symbols
  _Z14QLM_Calib_INITPhS_S_iiii
  _Z17QLM_Calib_PROCESSPhS_iiiii
  _Z20QLM_Get_Calib_ResultPh
  _Z21QLM_Get_Calib_Vertionv)
set(expected_alignment 0x4000)

function(run_readelf out)
  execute_process(COMMAND ${READELF} -W ${ARGN} ${LIBRARY}
                  OUTPUT_VARIABLE text RESULT_VARIABLE code)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "${READELF} ${ARGN} ${LIBRARY} failed (${code})")
  endif()
  # Brackets would group list elements; the checks never look at them.
  string(REGEX REPLACE "[][]" "|" text "${text}")
  string(REPLACE "\n" ";" lines "${text}")
  set(${out} "${lines}" PARENT_SCOPE)
endfunction()

run_readelf(header_lines -h)
list(FILTER header_lines INCLUDE REGEX "^ *Machine:")
string(REGEX REPLACE "^ *Machine: *" "" machine "${header_lines}")
if(NOT machine STREQUAL MACHINE)
  message(FATAL_ERROR "machine is '${machine}', expected '${MACHINE}'")
endif()

# Rows: Num: Value Size Type Bind Vis Ndx Name[@version]; defined = Ndx not UND.
run_readelf(symbol_lines --dyn-syms)
set(defined)
foreach(line IN LISTS symbol_lines)
  if(line MATCHES "^ *[0-9]+: +[0-9a-f]+ +[0-9]+ +([A-Z_]+) +(GLOBAL|WEAK|GNU_UNIQUE) +[A-Z]+ +([A-Z0-9]+) +([^ @]+)")
    if(NOT CMAKE_MATCH_3 STREQUAL "UND")
      list(APPEND defined "${CMAKE_MATCH_1} ${CMAKE_MATCH_4}")
    endif()
  endif()
endforeach()
list(SORT defined)
list(TRANSFORM expected_symbols PREPEND "FUNC ")
if(NOT defined STREQUAL expected_symbols)
  string(REPLACE ";" "\n  " got "${defined}")
  string(REPLACE ";" "\n  " want "${expected_symbols}")
  message(FATAL_ERROR "dynamic symbols defined:\n  ${got}\nexpected:\n  ${want}")
endif()

run_readelf(segment_lines -l)
list(FILTER segment_lines INCLUDE REGEX "^ *LOAD ")
if(NOT segment_lines)
  message(FATAL_ERROR "no LOAD segments in ${LIBRARY}")
endif()
foreach(line IN LISTS segment_lines)
  string(REGEX MATCH "0x[0-9a-f]+ *$" alignment "${line}")
  string(STRIP "${alignment}" alignment)
  if(NOT alignment STREQUAL expected_alignment)
    message(FATAL_ERROR "LOAD segment aligned to ${alignment}, expected ${expected_alignment}: ${line}")
  endif()
endforeach()
message(STATUS "${LIBRARY}: ${machine}, 4 entry points, LOAD aligned to ${expected_alignment}")
