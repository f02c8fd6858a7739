# Packages of an installation, by cpack: for Debian one for each component, an RPM with all, and an
# archive of the sources.
set(CPACK_PACKAGE_NAME clientcomm)
set(CPACK_PACKAGE_VENDOR "ClientComm")
set(CPACK_PACKAGE_CONTACT "ClientComm developers <clientcomm@packages.debian.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "client library that installs and calls a companion application")
set(CPACK_PACKAGE_DESCRIPTION
"ClientComm is a library that a desktop application carries in its bundle.
It installs a companion application, keeps it running, and reaches it by
remote calls over Unix sockets.")
set(CPACK_RESOURCE_FILE_LICENSE "${PROJECT_SOURCE_DIR}/LICENSE")
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL clientcomm_runtime clientcomm_development clientcomm_documentation)
if(CLIENTCOMM_BUILD_TOOL)
  list(APPEND CPACK_COMPONENTS_ALL clientcomm_tools)
endif()
set(CPACK_GENERATOR DEB)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

set(CPACK_DEBIAN_CLIENTCOMM_RUNTIME_PACKAGE_NAME "libclientcomm${PROJECT_VERSION_MAJOR}")
set(CPACK_DEBIAN_CLIENTCOMM_RUNTIME_PACKAGE_SECTION libs)
file(WRITE "${PROJECT_BINARY_DIR}/debian/triggers" "activate-noawait ldconfig\n")
file(WRITE "${PROJECT_BINARY_DIR}/debian/shlibs"
  "libClientComm ${PROJECT_VERSION_MAJOR} libclientcomm${PROJECT_VERSION_MAJOR} (>= ${PROJECT_VERSION})\n")
set(CPACK_DEBIAN_CLIENTCOMM_RUNTIME_PACKAGE_CONTROL_EXTRA
  "${PROJECT_BINARY_DIR}/debian/triggers" "${PROJECT_BINARY_DIR}/debian/shlibs")
set(CPACK_COMPONENT_CLIENTCOMM_RUNTIME_DESCRIPTION
"${CPACK_PACKAGE_DESCRIPTION}
This package has the shared library.")

set(CPACK_DEBIAN_CLIENTCOMM_DEVELOPMENT_PACKAGE_NAME libclientcomm-dev)
set(CPACK_DEBIAN_CLIENTCOMM_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_CLIENTCOMM_DEVELOPMENT_PACKAGE_DEPENDS
  "libclientcomm${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(CPACK_DEBIAN_CLIENTCOMM_DEVELOPMENT_PACKAGE_RECOMMENDS "libglib2.0-dev, libexpat1-dev")
set(CPACK_DEBIAN_CLIENTCOMM_DEVELOPMENT_PACKAGE_SUGGESTS clientcomm-doc)
set(CPACK_COMPONENT_CLIENTCOMM_DEVELOPMENT_DESCRIPTION
"${CPACK_PACKAGE_DESCRIPTION}
This package has the headers, the static library, and the descriptions by
which CMake and pkg-config find them.")

set(CPACK_DEBIAN_CLIENTCOMM_TOOLS_PACKAGE_NAME clientcomm-tools)
set(CPACK_DEBIAN_CLIENTCOMM_TOOLS_PACKAGE_SECTION devel)
set(CPACK_COMPONENT_CLIENTCOMM_TOOLS_DESCRIPTION
"${CPACK_PACKAGE_DESCRIPTION}
This package has the command clientcomm, which looks into applications that
use the library.")

set(CPACK_DEBIAN_CLIENTCOMM_DOCUMENTATION_PACKAGE_NAME clientcomm-doc)
set(CPACK_DEBIAN_CLIENTCOMM_DOCUMENTATION_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_CLIENTCOMM_DOCUMENTATION_PACKAGE_ARCHITECTURE all)
set(CPACK_COMPONENT_CLIENTCOMM_DOCUMENTATION_DESCRIPTION
"${CPACK_PACKAGE_DESCRIPTION}
This package has the pages on its use, its files and its wire format.")

# What Debian wants in each package is no part of another installation.
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_LIST_DIR}/ClientCommDebian.cmake")
set(CPACK_CLIENTCOMM_SOURCE "${PROJECT_SOURCE_DIR}")

set(CPACK_RPM_PACKAGE_LICENSE MIT)
set(CPACK_RPM_PACKAGE_GROUP "Development/Libraries")
set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_SPEC_MORE_DEFINE "%define _build_id_links none")
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
  "${CMAKE_INSTALL_PREFIX}/lib/cmake" "${CMAKE_INSTALL_PREFIX}/lib64"
  "${CMAKE_INSTALL_FULL_LIBDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}/cmake"
  "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig")

set(CPACK_SOURCE_GENERATOR TXZ)
set(CPACK_SOURCE_PACKAGE_FILE_NAME "clientcomm-${PROJECT_VERSION}")
set(CPACK_SOURCE_IGNORE_FILES "/build/" "/\\.git/" "/\\.git$" "/\\.cache/" "/__pycache__/"
  "/compile_commands\\.json$")
include(CPack)
