# The library exports names of its own only: no instance of a template of the standard library, which a
# host's own could replace.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

file(GLOB library "${PREFIX}/lib*/libClientComm.so" "${PREFIX}/lib*/*/libClientComm.so")
run("${NM}" -DC --defined-only "${library}")
string(REGEX MATCHALL " [A-Za-z] [^\n]*@@CLIENTCOMM_1" names "${output}")
list(LENGTH names count)
if(count LESS 200)
  message(FATAL_ERROR "only ${count} names are exported:\n${output}")
endif()
foreach(name IN LISTS names)
  if(NOT name MATCHES
     "^ [A-Z] (vtable for |typeinfo for |typeinfo name for )?(TQHP|clientcomm::|processer@|GetBSDProcessList|CLIENTCOMM_1)")
    message(FATAL_ERROR "exported: ${name}")
  endif()
endforeach()
