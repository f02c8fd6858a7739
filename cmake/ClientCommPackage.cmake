# What an installation holds besides the library and its headers: the descriptions by which CMake and
# pkg-config find them.
include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/ClientComm")
# The templates of clientcomm_add_session_files.
set(session_dir "${CMAKE_INSTALL_DATADIR}/clientcomm/session")

configure_package_config_file(
  "${CMAKE_CURRENT_LIST_DIR}/ClientCommConfig.cmake.in" "${PROJECT_BINARY_DIR}/ClientCommConfig.cmake"
  INSTALL_DESTINATION "${package_dir}" PATH_VARS session_dir NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(
  "${PROJECT_BINARY_DIR}/ClientCommConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(EXPORT ClientCommTargets NAMESPACE ClientComm:: DESTINATION "${package_dir}"
  COMPONENT clientcomm_development)
install(FILES
  "${PROJECT_BINARY_DIR}/ClientCommConfig.cmake"
  "${PROJECT_BINARY_DIR}/ClientCommConfigVersion.cmake"
  "${CMAKE_CURRENT_LIST_DIR}/ClientCommBundles.cmake"
  "${CMAKE_CURRENT_LIST_DIR}/ClientCommInstalledBundle.cmake"
  "${CMAKE_CURRENT_LIST_DIR}/ClientCommMirror.cmake"
  DESTINATION "${package_dir}" COMPONENT clientcomm_development)

install(FILES
  "${CMAKE_CURRENT_LIST_DIR}/session/helper.desktop.in"
  "${CMAKE_CURRENT_LIST_DIR}/session/helper.service.in"
  DESTINATION "${session_dir}" COMPONENT clientcomm_development)

# Relative to itself, so that an installation can be moved. A folder that is given as an absolute path
# stays where it is.
set(pkgconfig_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
set(pc_prefix "${CMAKE_INSTALL_PREFIX}")
if(NOT IS_ABSOLUTE "${pkgconfig_dir}")
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
    BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}/${pkgconfig_dir}" OUTPUT_VARIABLE pc_prefix)
  set(pc_prefix "\${pcfiledir}/${pc_prefix}")
endif()
foreach(folder IN ITEMS LIBDIR INCLUDEDIR)
  set(pc_${folder} "${CMAKE_INSTALL_${folder}}")
  if(NOT IS_ABSOLUTE "${pc_${folder}}")
    set(pc_${folder} "\${prefix}/${pc_${folder}}")
  endif()
endforeach()
configure_file("${CMAKE_CURRENT_LIST_DIR}/clientcomm.pc.in"
  "${PROJECT_BINARY_DIR}/clientcomm.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/clientcomm.pc"
  DESTINATION "${pkgconfig_dir}" COMPONENT clientcomm_development)

# The licence and the pages.
install(FILES "${PROJECT_SOURCE_DIR}/LICENSE" "${PROJECT_SOURCE_DIR}/README.md"
  "${PROJECT_SOURCE_DIR}/CHANGELOG.md" "${PROJECT_SOURCE_DIR}/SECURITY.md"
  DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT clientcomm_documentation)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/docs"
  DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT clientcomm_documentation
  FILES_MATCHING PATTERN "*.md" PATTERN "*.png" PATTERN "lab" EXCLUDE PATTERN "manual" EXCLUDE)

if(PROJECT_IS_TOP_LEVEL)
  add_custom_target(uninstall
    COMMAND "${CMAKE_COMMAND}" "-DMANIFEST=${PROJECT_BINARY_DIR}/install_manifest.txt"
            -P "${CMAKE_CURRENT_LIST_DIR}/ClientCommUninstall.cmake"
    COMMENT "Removing what the last installation put in place" VERBATIM)
  include(ClientCommManual)
  include(ClientCommPacks)
endif()
