# Every installed header can be included alone, twice, and needs no header of another library.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

file(REMOVE_RECURSE "${WORK}")
configure("${CMAKE_CURRENT_LIST_DIR}/headers" "${WORK}")
run("${CMAKE_COMMAND}" --build "${WORK}")
