# A bundle runs on other releases of a distribution than the one that it was built on: its programs
# and its copy of the library need nothing but GLib, expat, and the run-time libraries of C and C++,
# and look for libraries beside themselves only.
# READELF is the program, FILES and ALSO_ALLOWED are lists with "|" between the items.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

set(allowed libClientComm.so.1 libglib-2.0.so.0 libexpat.so.1 libstdc++.so.6 libgcc_s.so.1 libm.so.6
    libc.so.6)
string(REPLACE "|" ";" also_allowed "${ALSO_ALLOWED}")
list(APPEND allowed ${also_allowed})

file(GLOB libraries "${PREFIX}/lib*/libClientComm.so" "${PREFIX}/lib*/*/libClientComm.so")
string(REPLACE "|" ";" files "${FILES}")
foreach(file IN LISTS libraries files)
  run("${READELF}" --dynamic "${file}")
  string(REGEX MATCHALL "\\(NEEDED\\)[^\n]*" entries "${output}")
  if(NOT entries)
    message(FATAL_ERROR "${file} is not linked dynamically:\n${output}")
  endif()
  foreach(entry IN LISTS entries)
    string(REGEX REPLACE ".*\\[(.*)\\]" "\\1" name "${entry}")
    if(NOT name IN_LIST allowed AND NOT name MATCHES "^ld-linux|^lib[a-z]+san[.]so")
      message(FATAL_ERROR "${file} needs ${name}")
    endif()
  endforeach()
endforeach()
foreach(file IN LISTS files)
  run("${READELF}" --dynamic "${file}")
  if(NOT output MATCHES "\\((RUNPATH|RPATH)\\)[^\n]*\\[[$]ORIGIN/\\.\\./Frameworks\\]")
    message(FATAL_ERROR "${file} has another run path than its bundle's Frameworks:\n${output}")
  endif()
endforeach()
if(NOT libraries)
  message(FATAL_ERROR "no library is installed below ${PREFIX}")
endif()
