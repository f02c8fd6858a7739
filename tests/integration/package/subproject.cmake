# As a part of another project the library installs nothing unless asked, and touches no variable and no
# target of that project.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

file(REMOVE_RECURSE "${WORK}")
configure("${CMAKE_CURRENT_LIST_DIR}/subproject" "${WORK}/build" "-DCLIENTCOMM_SOURCE=${SOURCE}")
run("${CMAKE_COMMAND}" --install "${WORK}/build" --prefix "${WORK}/prefix")
file(GLOB_RECURSE installed RELATIVE "${WORK}/prefix" "${WORK}/prefix/*")
if(NOT installed STREQUAL "own.txt")
  message(FATAL_ERROR "installed are: ${installed}")
endif()
configure("${CMAKE_CURRENT_LIST_DIR}/subproject" "${WORK}/build" -DCLIENTCOMM_INSTALL=ON)
expect_file("${WORK}/build/clientcomm/cmake_install.cmake" "clientcomm.pc")
