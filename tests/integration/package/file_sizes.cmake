# Installed headers name no type whose size depends on _FILE_OFFSET_BITS or _TIME_BITS, which the
# library and its users may define differently in a 32-bit build.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

file(GLOB_RECURSE headers "${PREFIX}/include/*.h")
if(NOT headers)
  message(FATAL_ERROR "no header is installed below ${PREFIX}")
endif()
foreach(header IN LISTS headers)
  file(STRINGS "${header}" lines REGEX
    "(^|[^A-Za-z_0-9])(off|ino|time|blkcnt|fsblkcnt|fsfilcnt|rlim|suseconds)_t([^A-Za-z_0-9]|$)|(struct|::) *(stat|timespec|timeval|dirent|flock|utimbuf|tm)([^A-Za-z_0-9]|$)|#include <(sys/|dirent|fcntl|unistd|ctime|time[.]h)")
  if(lines)
    list(JOIN lines "\n" lines)
    message(FATAL_ERROR "${header} depends on the sizes of files or times:\n${lines}")
  endif()
endforeach()
