# The commands of a page, as printed, make a host that runs its helper, and those of
# docs/troubleshooting.md show both.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")
include("${CMAKE_CURRENT_LIST_DIR}/markdown.cmake")

file(REMOVE_RECURSE "${WORK}")
extract_snippets("${SOURCE}/README.md" "${WORK}/project")
if(PAGE STREQUAL "bundles")
  file(REMOVE "${WORK}/project/CMakeLists.txt")
  extract_snippets("${SOURCE}/docs/bundles.md" "${WORK}/project")
endif()
extract_snippets("${SOURCE}/docs/troubleshooting.md" "${WORK}/project")

# In place of what a reader fills in, or has elsewhere: the build folder, the installation, and the
# compiler that built it.
file(READ "${WORK}/project/${SCRIPT}" script)
string(REPLACE "<ClientComm's build folder>" "'${BUILD}'" script "${script}")
string(REPLACE "/opt/clientcomm" "${PREFIX}" script "${script}")
string(REPLACE "g++ " "'${COMPILER}' ${FLAGS} " script "${script}")
file(WRITE "${WORK}/project/${SCRIPT}" "${script}")

set(ENV{CXX} "${COMPILER}")
set(ENV{CXXFLAGS} "${FLAGS}")
set(ENV{CMAKE_GENERATOR} "${GENERATOR}")
run(bash "${CMAKE_CURRENT_LIST_DIR}/run_host.sh" "${WORK}" "${SCRIPT}" look.sh)
