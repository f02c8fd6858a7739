# A host's own functions change nothing in the library, whatever their names are: this host has one for each
# function of the library, exported or not, and every one of them aborts. Its helper is compiled without
# exceptions and run-time type information.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

file(REMOVE_RECURSE "${WORK}")
run("${NM}" --format=posix "${BUILD}/ClientComm/libClientComm.so")
# The names of the standard library and of the compiler's start-up code are not the library's own.
string(REGEX MATCHALL "(^|\n)_ZN?[KVO]*(10clientcomm|[0-9]+TQHP|[0-9]+GetBSD)[^ \n]* [tTwW] " names "${output}")
list(TRANSFORM names REPLACE "^\n|@.*| [tTwW] $" "")
list(FILTER names EXCLUDE REGEX "[.]")
list(REMOVE_DUPLICATES names)
list(LENGTH names count)
if(count LESS 300)
  message(FATAL_ERROR "only ${count} functions were found")
endif()
set(text "")
set(number 0)
foreach(name IN LISTS names)
  math(EXPR number "${number} + 1")
  string(APPEND text "void decoy${number}(void) __asm__(\"${name}\");\n"
                     "void decoy${number}(void) { __builtin_trap(); }\n")
endforeach()
file(WRITE "${WORK}/decoys.c" "${text}")

configure("${CMAKE_CURRENT_LIST_DIR}/decoys" "${WORK}/build"
  "-DDECOYS=${WORK}/decoys.c" "-DHELPER=${SOURCE}/examples/minimal/main.cpp")
run("${CMAKE_COMMAND}" --build "${WORK}/build")
run(bash "${CMAKE_CURRENT_LIST_DIR}/decoys/run.sh" "${WORK}")
expect_contains("${output}" "client ID: one-for-all\n")
expect_contains("${output}" "helper: ended\n")
