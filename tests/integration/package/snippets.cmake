# The code that README and the pages of docs/ print is complete: it builds against the package as it
# stands there. Tests of their own run what README and docs/bundles.md say to run.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")
include("${CMAKE_CURRENT_LIST_DIR}/markdown.cmake")

# What a page must show at least, by the name of its folder.
set(wanted_README host.cpp helper.cpp CMakeLists.txt quick-start.sh)
set(wanted_bundles CMakeLists.txt by-hand.sh host.plist helper.plist)
set(wanted_c-interface host.c helper.c loop.py)
set(wanted_delegates upgrade_delegate.cpp)
set(wanted_event-loops epoll_host.cpp)
set(wanted_deployment remove_helper.cpp)
set(wanted_troubleshooting look.sh report.cpp)
set(wanted_tutorial-helper control.h control.cpp data.h helper.cpp CMakeLists.txt)
set(wanted_tutorial-host helper.cpp host.cpp upgrade_question.h CMakeLists.txt try.sh)
set(wanted_writing-a-helper main.cpp CMakeLists.txt call_back.cpp)
set(wanted_writing-a-host without_blocking.cpp)

set(pages "${WORK}/pages")
file(REMOVE_RECURSE "${WORK}")
file(GLOB files "${SOURCE}/README.md" "${SOURCE}/docs/*.md" "${SOURCE}/docs/lab/*.md")
foreach(file IN LISTS files)
  cmake_path(GET file STEM page)
  extract_snippets("${file}" "${pages}/${page}")
  foreach(name IN LISTS wanted_${page})
    if(NOT name IN_LIST snippets)
      message(FATAL_ERROR "${file} has no snippet called ${name}; it has: ${snippets}")
    endif()
  endforeach()
endforeach()

# The first helper of the guide and the one among the examples are the same.
run("${CMAKE_COMMAND}" -E compare_files
    "${pages}/writing-a-helper/main.cpp" "${SOURCE}/examples/minimal/main.cpp")

# The projects of README and of the first tutorial are built by the tests of first steps; here README's
# sources make the applications that docs/bundles.md lays out.
file(COPY "${pages}/README/host.cpp" "${pages}/README/helper.cpp" DESTINATION "${pages}/bundles")
file(REMOVE_RECURSE "${pages}/README" "${pages}/tutorial-host")
file(WRITE "${pages}/bundles/notes.txt" "Notes.")
file(WRITE "${pages}/bundles/resources/en.lproj/InfoPlist.strings" "\"CFBundleName\" = \"Host\";\n")

file(GLOB programs "${pages}/*/*.py")
foreach(program IN LISTS programs)
  run("${PYTHON}" -m py_compile "${program}")
endforeach()

configure("${CMAKE_CURRENT_LIST_DIR}/snippets" "${WORK}/build" "-DPAGES=${pages}"
          "-DCMAKE_C_COMPILER=${C_COMPILER}" "-DCMAKE_C_FLAGS=${C_FLAGS}")
run("${CMAKE_COMMAND}" --build "${WORK}/build")
