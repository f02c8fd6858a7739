# Installs into the prefix that the other tests use, and looks at what is there.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

file(REMOVE_RECURSE "${PREFIX}")
run("${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${PREFIX}")

file(GLOB_RECURSE headers RELATIVE "${PREFIX}/include" "${PREFIX}/include/*")
foreach(wanted IN ITEMS ClientComm/TQHPHelper.h ClientComm/TQHPHelperCommunicate.h ClientComm/platform/bundle.h)
  if(NOT "clientcomm/${wanted}" IN_LIST headers)
    message(FATAL_ERROR "${wanted} is not installed; installed are: ${headers}")
  endif()
endforeach()
if(headers MATCHES "TQHPVersion|internal|portable|posix|glib|linux")
  message(FATAL_ERROR "an internal header is installed: ${headers}")
endif()
