# Options that every target of this project is compiled with, and that no user of the library inherits.
add_library(clientcomm_options INTERFACE)
target_compile_options(clientcomm_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
  -Woverloaded-virtual -Wold-style-cast -Wcast-align -Wformat=2
  $<$<BOOL:${CLIENTCOMM_WERROR}>:-Werror>)
if(CLIENTCOMM_SANITIZE)
  target_compile_options(clientcomm_options INTERFACE
    -fsanitize=${CLIENTCOMM_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(clientcomm_options INTERFACE -fsanitize=${CLIENTCOMM_SANITIZE})
endif()
