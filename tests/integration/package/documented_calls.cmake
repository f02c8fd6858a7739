# Both parts of docs/services.md and the sample helper name the same calls, letter for letter.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

set(selector "[a-z][A-Za-z]*:([A-Za-z]*:)*")
file(READ "${SOURCE}/docs/services.md" page)
string(FIND "${page}" "\n## What a helper answers\n" middle)
string(SUBSTRING "${page}" 0 ${middle} host_side)
string(SUBSTRING "${page}" ${middle} -1 helper_side)
file(GLOB files "${SOURCE}/examples/helper/*.cpp")
list(FILTER files EXCLUDE REGEX "/console\\.cpp$") # only for tests and tours
set(sample "")
foreach(file IN LISTS files)
  file(READ "${file}" text)
  string(APPEND sample "${text}")
endforeach()

function(expect_all_in pattern from before after in what)
  string(REGEX MATCHALL "${pattern}" matches "${from}")
  list(LENGTH matches count)
  if(count LESS 20)
    message(FATAL_ERROR "only ${count} selectors were found, ${what}")
  endif()
  foreach(match IN LISTS matches)
    string(REGEX MATCH "[A-Za-z][A-Za-z:]*" name "${match}")
    string(FIND "${in}" "${before}${name}${after}" position)
    if(position EQUAL -1)
      message(FATAL_ERROR "\"${name}\" is ${what}")
    endif()
  endforeach()
endfunction()

# A row with this sign is a call that the sample leaves out on purpose.
string(REGEX REPLACE "[^\n]*†[^\n]*" "" answered "${helper_side}")
expect_all_in("`${selector}`" "${answered}" "\"" "\"" "${sample}"
              "among the helper's calls, not in the sample")
expect_all_in(">\\(\"[A-Za-z:]+\"\\)" "${sample}" "`" "`" "${helper_side}"
              "in the sample, not among the helper's calls")
expect_all_in("`${selector}`" "${host_side}" "`" "`" "${helper_side}"
              "among the host's calls, not among the helper's")
