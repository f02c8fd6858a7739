# The library exports what its installed headers declare, and nothing else; a program can use all of it.
# COMPILER is any compiler, GXX is g++ with options, NM and PYTHON are programs.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

set(include_dir "${PREFIX}/include/clientcomm")
file(GLOB library "${PREFIX}/lib*/libClientComm.so" "${PREFIX}/lib*/*/libClientComm.so")
separate_arguments(flags UNIX_COMMAND "${FLAGS}")
file(REMOVE_RECURSE "${WORK}")
file(MAKE_DIRECTORY "${WORK}")

run("${COMPILER}" -std=c++20 ${flags} -O0 -fPIC "-I${include_dir}" -c "${CMAKE_CURRENT_LIST_DIR}/interface/uses.cpp"
    -o "${WORK}/uses.o")
run("${COMPILER}" ${flags} "${WORK}/uses.o" "${library}" -o "${WORK}/uses")
run("${PYTHON}" "${CMAKE_CURRENT_LIST_DIR}/interface/compare.py" "${GXX}" "${NM}" "${include_dir}"
    "${library}" "${WORK}/uses.o" "${WORK}/declarations")
