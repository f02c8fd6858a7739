# Puts the copyright file and the change log that Debian asks for into each staged package, and
# compresses its manual pages.
cmake_policy(VERSION 3.25)

if(NOT CPACK_GENERATOR STREQUAL "DEB")
  return()
endif()

set(version "${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(change_log "clientcomm (${version}) unstable; urgency=medium

  * Package version ${CPACK_PACKAGE_VERSION}. What changed is in clientcomm-doc.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER "${component}" key)
  set(folder "${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/share/doc/${CPACK_DEBIAN_${key}_PACKAGE_NAME}")
  file(MAKE_DIRECTORY "${folder}")
  file(COPY_FILE "${CPACK_RESOURCE_FILE_LICENSE}" "${folder}/copyright")
  file(WRITE "${folder}/changelog.Debian" "${change_log}")
  file(GLOB pages "${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/share/man/man*/*.[0-9]")
  execute_process(COMMAND gzip -9 -n -f "${folder}/changelog.Debian" ${pages} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
