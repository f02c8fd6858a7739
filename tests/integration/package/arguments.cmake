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
expect_refusal("an identifier of blanks" "IDENTIFIER is missing")
expect_refusal("an identifier with a blank" "the identifier \"com.example app\" contains a blank")
expect_refusal("an unknown argument" "unknown arguments: VERSOIN;1.0")
expect_refusal("a name with a slash" "must not contain")
expect_refusal("a text without a key" "\"=P1\" is not of the form key=value")
expect_refusal("a key of blanks" "\" =P1\" is not of the form key=value")
expect_refusal("a text without an equals sign" "\"PID\" is not of the form key=value")
expect_refusal("blanks around an equals sign" "\"PID = P100\" has a blank")
expect_refusal("a blank before an equals sign" "\"TipsEnable =true\" has a blank")
expect_refusal("a blank after an equals sign" "\"Any key= its text\" has a blank")
expect_refusal("a blank before a key" "\" PID=P100\" has a blank")
expect_refusal("a truth value that is none" "\"TipsEnable\" must be true or false")
expect_refusal("a key set twice" "the Info key \"PID\" is set twice")
expect_refusal("two bundles in one place" "app is already at")
expect_refusal("a helper that does not exist" "there is no target helper")
expect_refusal("a helper that is no application" "helper was not made by clientcomm_add_application")
expect_refusal("a target that does not exist" "there is no target app")
expect_refusal("a target that is no executable" "app is no executable of this folder")
expect_refusal("a target that is a bundle" "app is a bundle already")
expect_refusal("sources for a target that has its own" "unknown arguments: SOURCES;app.cpp")
expect_refusal("a bundle that does not exist" "there is no bundle at")
expect_refusal("a helper without an identifier" "helper has no identifier")
expect_refusal("host and helper with one identifier" "have the same identifier, com.example.app")
expect_refusal("no install location" "INSTALL_LOCATION is missing")
expect_refusal("an empty install location" "INSTALL_LOCATION is missing")
expect_refusal("a relative install location" "or is no absolute path")
expect_refusal("no destination" "DESTINATION is missing")
expect_refusal("an installation of what is no bundle"
               "clientcomm_install_bundle: helper was not made by clientcomm_add_application")
expect_refusal("an installation of a target that does not exist"
               "clientcomm_install_bundle: there is no target nothing")
expect_refusal("session files of what is no bundle"
               "clientcomm_add_session_files: helper was not made by clientcomm_add_application")
expect_refusal("session files of a target that does not exist"
               "clientcomm_add_session_files: there is no target nothing")
expect_refusal("an installation of session files that nothing made" "there are no files for log-in")
expect_refusal("an unknown argument of an installation" "unknown arguments: BUNDLE")
