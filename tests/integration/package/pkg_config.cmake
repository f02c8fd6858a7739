# A project that has no CMake builds and links by what pkg-config tells it; and the installation can be
# moved, because nothing in it names the place where it was made.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

file(REMOVE_RECURSE "${WORK}")
file(COPY "${PREFIX}/" DESTINATION "${WORK}/moved")
file(GLOB_RECURSE description "${WORK}/moved/clientcomm.pc")
cmake_path(GET description PARENT_PATH folder)
set(ENV{PKG_CONFIG_PATH} "${folder}")

run("${PKG_CONFIG}" --cflags --libs clientcomm)
expect_contains("${output}" "moved")
string(STRIP "${output}" options)
separate_arguments(options UNIX_COMMAND "${options}")
separate_arguments(flags UNIX_COMMAND "${FLAGS}")
run("${COMPILER}" -std=c++20 ${flags} "${CMAKE_CURRENT_LIST_DIR}/consumer/helper.cpp" ${options}
    -o "${WORK}/program")

run("${PKG_CONFIG}" --variable=libdir clientcomm)
string(STRIP "${output}" library_folder)
set(ENV{LD_LIBRARY_PATH} "${library_folder}")
run("${WORK}/program")
expect_contains("${output}" "${WORK}")

file(GLOB_RECURSE files "${WORK}/moved/*.cmake" "${WORK}/moved/*.pc")
foreach(file IN LISTS files)
  file(READ "${file}" text)
  string(FIND "${text}" "${PREFIX}" position)
  if(NOT position EQUAL -1)
    message(FATAL_ERROR "${file} names the place of the installation")
  endif()
endforeach()
