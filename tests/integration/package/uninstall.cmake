# The target `uninstall` removes what an installation put in place, and nothing else.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

file(REMOVE_RECURSE "${WORK}")
run("${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${WORK}/prefix")
file(COPY_FILE "${BUILD}/install_manifest.txt" "${WORK}/manifest.txt")
file(GLOB_RECURSE installed "${WORK}/prefix/*")
foreach(part IN ITEMS "libClientComm.so.1" "libClientComm.a" "clientcomm.pc" "/LICENSE"
        "/docs/building.md" "/README.md")
  expect_contains("${installed}" "${part}")
endforeach()
file(WRITE "${WORK}/prefix/share/doc/other.txt" "of another package")

run("${CMAKE_COMMAND}" "-DMANIFEST=${WORK}/manifest.txt" -P "${SOURCE}/cmake/ClientCommUninstall.cmake")
file(GLOB_RECURSE left LIST_DIRECTORIES true RELATIVE "${WORK}/prefix" "${WORK}/prefix/*")
list(FILTER left INCLUDE REGEX "[Cc]lient[Cc]omm|other")
if(NOT left STREQUAL "share/doc/other.txt")
  message(FATAL_ERROR "left are: ${left}")
endif()
run("${CMAKE_COMMAND}" --build "${BUILD}" --target help)
expect_contains("${output}" "uninstall")
