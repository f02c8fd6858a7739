# The bundle functions refuse what they cannot carry out, and say why.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

function(expect_refusal mistake complaint)
  execute_process(
    COMMAND "${CMAKE_COMMAND}" -G "${GENERATOR}" -S "${CMAKE_CURRENT_LIST_DIR}/arguments" -B "${WORK}"
            "-DMISTAKE=${mistake}" "-DBUNDLE_FUNCTIONS=${BUNDLE_FUNCTIONS}"
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(result EQUAL 0)
    message(FATAL_ERROR "${mistake} was accepted")
  endif()
  string(REGEX REPLACE "[ \n]+" " " output "${output}")
  expect_contains("${output}" "${complaint}")
endfunction()

file(REMOVE_RECURSE "${WORK}")
expect_refusal("a missing identifier" "IDENTIFIER is missing")
expect_refusal("an unknown argument" "unknown arguments: VERSOIN;1.0")
expect_refusal("a name with a slash" "must not contain")
expect_refusal("a text without a key" "\"=P1\" is not of the form key=value")
expect_refusal("a truth value that is none" "\"TipsEnable\" must be true or false")
expect_refusal("a key set twice" "the Info key \"PID\" is set twice")
expect_refusal("two bundles in one place" "app is already at")
expect_refusal("a helper that does not exist" "there is no target helper")
expect_refusal("a helper that is no application" "helper was not made by clientcomm_add_application")
