# Writes to FILE, which CTest includes, a test for each suite of the GoogleTest program PROGRAM. Each takes
# TIMEOUT seconds at most, and its name begins with PREFIX.
execute_process(COMMAND "${PROGRAM}" --gtest_list_tests
  OUTPUT_VARIABLE list TIMEOUT 60 COMMAND_ERROR_IS_FATAL ANY)
# A suite stands at the beginning of its line and ends with a point; a comment may follow.
string(REGEX MATCHALL "(^|\n)[A-Za-z0-9_/]+\\." suites "${list}")
if(NOT suites)
  message(FATAL_ERROR "${PROGRAM} has no tests")
endif()
set(text "")
foreach(suite IN LISTS suites)
  string(STRIP "${suite}" suite)
  string(REGEX REPLACE "\\.$" "" suite "${suite}")
  string(APPEND text
    "add_test([=[${PREFIX}${suite}]=] [=[${PROGRAM}]=] [=[--gtest_filter=${suite}.*]=] --gtest_brief=1)\n"
    "set_tests_properties([=[${PREFIX}${suite}]=] PROPERTIES TIMEOUT ${TIMEOUT})\n")
endforeach()
file(WRITE "${FILE}" "${text}")
