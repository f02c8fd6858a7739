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
install(EXPORT ClientCommTargets NAMESPACE ClientComm:: DESTINATION "${package_dir}")
install(FILES
  "${PROJECT_BINARY_DIR}/ClientCommConfig.cmake"
  "${PROJECT_BINARY_DIR}/ClientCommConfigVersion.cmake"
  "${CMAKE_CURRENT_LIST_DIR}/ClientCommBundles.cmake"
  "${CMAKE_CURRENT_LIST_DIR}/ClientCommMirror.cmake"
  DESTINATION "${package_dir}")

install(FILES
  "${CMAKE_CURRENT_LIST_DIR}/session/helper.desktop.in"
  "${CMAKE_CURRENT_LIST_DIR}/session/helper.service.in"
  DESTINATION "${session_dir}")

# Relative to itself, so that an installation can be moved.
set(pkgconfig_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
  BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}/${pkgconfig_dir}" OUTPUT_VARIABLE prefix_from_pkgconfig)
configure_file("${CMAKE_CURRENT_LIST_DIR}/clientcomm.pc.in"
  "${PROJECT_BINARY_DIR}/clientcomm.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/clientcomm.pc" DESTINATION "${pkgconfig_dir}")
