# The installed command: its projects build and run, its page is well-formed, its completion completes.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

file(REMOVE_RECURSE "${WORK}")
file(MAKE_DIRECTORY "${WORK}")
set(ENV{CXX} "${COMPILER}")
set(ENV{CXXFLAGS} "${FLAGS}")
set(ENV{CMAKE_GENERATOR} "${GENERATOR}")
set(ENV{CMAKE_PREFIX_PATH} "${PREFIX}")
run(bash "${CMAKE_CURRENT_LIST_DIR}/tool.sh" "${PREFIX}" "${WORK}")
file(REMOVE_RECURSE "${WORK}")
