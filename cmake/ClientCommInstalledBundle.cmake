# Installing application bundles. Included by ClientCommBundles.cmake.
include_guard(GLOBAL)

# clientcomm_install_bundle(<target> DESTINATION <dir> [COMPONENT <component>])
#
# Installs the bundle of the application <target> as it was built, with the helper that is embedded in it,
# below <dir>: an absolute path, or one relative to the prefix. <target> is made by
# clientcomm_add_application or clientcomm_make_bundle. An installation fails where the bundle was not
# built. All users can read what it installs.
#
# It takes the place of install(TARGETS), which would install the executable alone: CMake installs a
# folder with a target on Apple's systems only, and gives no hook for others.
function(clientcomm_install_bundle target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "DESTINATION;COMPONENT" "")
  if(DEFINED arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "clientcomm_install_bundle(${target}): unknown arguments: ${arg_UNPARSED_ARGUMENTS}")
  endif()
  _clientcomm_require_application(clientcomm_install_bundle ${target})
  if("${arg_DESTINATION}" STREQUAL "")
    message(FATAL_ERROR "clientcomm_install_bundle(${target}): DESTINATION is missing")
  endif()
  set(component "")
  if(DEFINED arg_COMPONENT)
    set(component COMPONENT "${arg_COMPONENT}")
  endif()

  get_target_property(bundle ${target} CLIENTCOMM_BUNDLE_DIR)
  install(CODE "
    if(NOT EXISTS \"$<TARGET_FILE:${target}>\" OR NOT EXISTS \"${bundle}/Contents/Info.plist\")
      message(FATAL_ERROR \"${bundle} was not built\")
    endif()" ${component})
  set(readable OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  set(executable OWNER_EXECUTE GROUP_EXECUTE WORLD_EXECUTE)
  install(DIRECTORY "${bundle}" DESTINATION "${arg_DESTINATION}" ${component}
    FILE_PERMISSIONS ${readable}
    DIRECTORY_PERMISSIONS ${readable} ${executable}
    REGEX "/Contents/(Linux|MacOS)/[^/]*$" PERMISSIONS ${readable} ${executable})
endfunction()
