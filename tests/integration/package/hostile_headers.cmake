# Every installed header compiles as a host finds it: after Qt's and Xlib's macros, without exceptions and
# run-time type information, behind folders of the host's that have headers of the same names, by both
# compilers and both standards. Every header of the source tree compiles after the macros of macOS.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

set(hostile "${CMAKE_CURRENT_LIST_DIR}/hostile")
file(REMOVE_RECURSE "${WORK}")

# Writes a source that includes the headers below <root> which match <patterns>, each twice.
function(write_source file root)
  set(text "")
  foreach(pattern IN LISTS ARGN)
    file(GLOB headers RELATIVE "${root}" "${root}/${pattern}")
    foreach(header IN LISTS headers)
      string(APPEND text "#include <${header}>\n#include <${header}>\n")
    endforeach()
  endforeach()
  file(WRITE "${file}" "${text}")
  string(REGEX MATCHALL "#include" includes "${text}")
  list(LENGTH includes count)
  if(count LESS 40)
    message(FATAL_ERROR "only ${count} includes in ${file}")
  endif()
endfunction()

# What a host may have in its own folders, by the names that the library's headers have in theirs.
file(GLOB_RECURSE headers RELATIVE "${PREFIX}/include/clientcomm/ClientComm"
     "${PREFIX}/include/clientcomm/ClientComm/*.h")
foreach(header IN LISTS headers ITEMS path.h timer.h platform/path.h platform/timer.h internal/guard.h)
  cmake_path(GET header FILENAME name)
  foreach(place IN ITEMS "${header}" "${name}" "platform/${name}")
    file(WRITE "${WORK}/host/${place}" "#error \"this is the host's own ${place}\"\n")
  endforeach()
endforeach()

write_source("${WORK}/installed.cpp" "${PREFIX}/include/clientcomm"
             ClientComm/*.h ClientComm/c/*.h ClientComm/platform/*.h)
write_source("${WORK}/neutral.cpp" "${SOURCE}" ClientComm/platform/*.h ClientComm/*.h ClientComm/c/*.h
             ClientComm/internal/*.h)

separate_arguments(flags UNIX_COMMAND "${FLAGS}")
string(REPLACE "|" ";" compilers "${COMPILERS}")
foreach(compiler IN LISTS compilers)
  set(command "${compiler}")
  if(compiler STREQUAL COMPILER)
    list(APPEND command ${flags})
  endif()
  foreach(standard IN ITEMS c++20 c++2b)
    run(${command} -std=${standard} -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
        -fno-rtti -fno-exceptions -fsyntax-only -include "${hostile}/prelude.h"
        "-I${WORK}/host" "-I${WORK}/host/platform" "-I${PREFIX}/include/clientcomm" "${WORK}/installed.cpp")
  endforeach()
  run(${command} -std=c++20 -fsyntax-only -include "${hostile}/bsd_prelude.h"
      "-I${WORK}/host" "-I${SOURCE}" "${WORK}/neutral.cpp")
endforeach()
