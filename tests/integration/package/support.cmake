# What the package's tests share.
cmake_policy(VERSION 3.25)

# Runs a program that must succeed; sets `output` to what it wrote.
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}\nended with ${result}:\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

function(expect_contains text part)
  string(FIND "${text}" "${part}" position)
  if(position EQUAL -1)
    message(FATAL_ERROR "\"${part}\" is missing in:\n${text}")
  endif()
endfunction()

function(expect_file path text)
  file(READ "${path}" content)
  expect_contains("${content}" "${text}")
endfunction()

function(expect_absent path)
  if(EXISTS "${path}" OR IS_SYMLINK "${path}")
    message(FATAL_ERROR "${path} should not be there")
  endif()
endfunction()

# Configures the project in <source>, as one outside that knows the package only by its prefix.
function(configure source build)
  run("${CMAKE_COMMAND}" -G "${GENERATOR}" -S "${source}" -B "${build}"
      "-DCMAKE_PREFIX_PATH=${PREFIX}" "-DCMAKE_BUILD_TYPE=${BUILD_TYPE}"
      "-DCMAKE_CXX_COMPILER=${COMPILER}" "-DCMAKE_CXX_FLAGS=${FLAGS}" ${ARGN})
  set(output "${output}" PARENT_SCOPE)
endfunction()
