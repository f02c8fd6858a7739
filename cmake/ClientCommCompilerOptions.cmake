# Options that every target of this project is compiled with, and that no user of the library inherits.
add_library(clientcomm_options INTERFACE)
target_compile_options(clientcomm_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
  "$<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor;-Woverloaded-virtual;-Wold-style-cast>"
  -Wcast-align -Wformat=2
  $<$<BOOL:${CLIENTCOMM_WERROR}>:-Werror>)
# Before version 13, g++ takes the optimised form of "text" + std::string() for an overlapping copy.
target_compile_options(clientcomm_options INTERFACE
  $<$<AND:$<COMPILE_LANG_AND_ID:CXX,GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>)

# Large files, large inode numbers and dates after 2038 in a 32-bit build too. Installed headers use no
# type whose size this changes. A 64-bit build has nothing to gain.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  target_compile_definitions(clientcomm_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()

# Whether the shared library is optimised as a whole when it is linked, which makes it a sixth smaller:
# in a release by g++. Its objects hold ordinary code too, which the project's own programs link.
set(clientcomm_links_optimised "$<AND:$<CONFIG:Release>,$<CXX_COMPILER_ID:GNU>>")
if(CMAKE_INTERPROCEDURAL_OPTIMIZATION)
  set(clientcomm_links_optimised 0)  # Everything is, by CMake's own options.
endif()

# clientcomm_optimise(<target> <source>...)
#
# The library rides along in every product of a family: a release of it is small, and fast only where
# every call goes through, in the given sources.
function(clientcomm_optimise target)
  target_compile_options(${target} PRIVATE
    $<$<CONFIG:Release>:-Oz> $<$<CONFIG:Release>:-ffunction-sections> $<$<CONFIG:Release>:-fdata-sections>)
  target_compile_options(${target} PRIVATE "$<${clientcomm_links_optimised}:-flto=auto;-ffat-lto-objects>")
  set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS "$<$<CONFIG:Release>:-O2>")
endfunction()

if(CLIENTCOMM_SANITIZE)
  target_compile_options(clientcomm_options INTERFACE
    -fsanitize=${CLIENTCOMM_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(clientcomm_options INTERFACE -fsanitize=${CLIENTCOMM_SANITIZE})
endif()
