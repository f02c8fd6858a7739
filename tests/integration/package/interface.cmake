# The library exports what its installed headers declare, and nothing else; a program can use all of it.
# COMPILER is any compiler, COMPILERS more of them, GXX is g++ with options, NM and PYTHON are programs.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

set(include_dir "${PREFIX}/include/clientcomm")
file(GLOB library "${PREFIX}/lib*/libClientComm.so" "${PREFIX}/lib*/*/libClientComm.so")
separate_arguments(flags UNIX_COMMAND "${FLAGS}")
file(REMOVE_RECURSE "${WORK}")
file(MAKE_DIRECTORY "${WORK}")

run("${COMPILER}" -std=c++20 ${flags} -O0 -fPIC "-I${include_dir}" -c "${CMAKE_CURRENT_LIST_DIR}/interface/uses.cpp"
    -o "${WORK}/uses.o")
run("${COMPILER}" ${flags} "${WORK}/uses.o" "${library}" -o "${WORK}/uses")

# The C interface, as C99 and as the oldest C++ that it is for; what C calls must be there to be linked.
set(warnings -Wall -Wextra -Wpedantic -Wconversion -Werror)
string(REPLACE "|" ";" compilers "${COMPILERS}")
foreach(compiler IN LISTS compilers)
  set(command "${compiler}" ${warnings} "-I${include_dir}" -fsyntax-only)
  if(compiler STREQUAL COMPILER)
    list(APPEND command ${flags} -Wno-unused-command-line-argument)
  endif()
  run(${command} -x c -std=c99 -Wstrict-prototypes "${CMAKE_CURRENT_LIST_DIR}/interface/uses.c")
  run(${command} -x c -std=c17 -Wstrict-prototypes "${CMAKE_CURRENT_LIST_DIR}/interface/uses.c")
  run(${command} -x c++ -std=c++11 -Wold-style-cast "${CMAKE_CURRENT_LIST_DIR}/interface/uses.c")
endforeach()
run("${COMPILER}" ${flags} -x c -std=c99 -O0 -fPIC "-I${include_dir}"
    -c "${CMAKE_CURRENT_LIST_DIR}/interface/uses.c" -o "${WORK}/uses_in_c.o")
run("${COMPILER}" ${flags} "${WORK}/uses_in_c.o" "${library}" -o "${WORK}/uses_in_c")
run("${PYTHON}" "${CMAKE_CURRENT_LIST_DIR}/interface/compare.py" "${GXX}" "${NM}" "${include_dir}"
    "${library}" "${WORK}/declarations" "${WORK}/uses.o" "${WORK}/uses_in_c.o")
