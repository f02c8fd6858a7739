# Installing application bundles. Included by ClientCommBundles.cmake.
include_guard(GLOBAL)

# clientcomm_install_bundle(<target> DESTINATION <dir>
#   [SERVICE_DESTINATION <dir>]     where the user unit goes that starts the helper at log-in
#   [AUTOSTART_DESTINATION <dir>]   the same for the file for a desktop
#   [COMPONENT <component>])
#
# Installs the bundle of the application <target> as it was built, with the helper that is embedded in it,
# below <dir>: an absolute path, or one relative to the prefix. <target> is made by
# clientcomm_add_application or clientcomm_make_bundle. An installation fails where the bundle was not
# built. All users can read what it installs.
#
# The files for log-in are those that clientcomm_add_session_files has made before, for <target> or for
# the helper in it.
#
# It takes the place of install(TARGETS), which would install the executable alone: CMake installs a
# folder with a target on Apple's systems only, and gives no hook for others.
function(clientcomm_install_bundle target)
  cmake_parse_arguments(PARSE_ARGV 1 arg ""
                        "DESTINATION;SERVICE_DESTINATION;AUTOSTART_DESTINATION;COMPONENT" "")
  if(DEFINED arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "clientcomm_install_bundle(${target}): unknown arguments: ${arg_UNPARSED_ARGUMENTS}")
  endif()
  _clientcomm_require_application(clientcomm_install_bundle ${target})
  if("${arg_DESTINATION}" STREQUAL "")
    message(FATAL_ERROR "clientcomm_install_bundle(${target}): DESTINATION is missing")
  endif()
  _clientcomm_session_files_of(${target} session_files)
  if((DEFINED arg_SERVICE_DESTINATION OR DEFINED arg_AUTOSTART_DESTINATION) AND NOT session_files)
    message(FATAL_ERROR "clientcomm_install_bundle(${target}): there are no files for log-in; call "
                        "clientcomm_add_session_files for the helper before")
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
  if(DEFINED arg_SERVICE_DESTINATION)
    install(FILES "${session_files}.service" DESTINATION "${arg_SERVICE_DESTINATION}" ${component})
  endif()
  if(DEFINED arg_AUTOSTART_DESTINATION)
    install(FILES "${session_files}.desktop" DESTINATION "${arg_AUTOSTART_DESTINATION}" ${component})
  endif()
endfunction()

# Sets <variable> to the files for log-in of an application, or of the helper embedded in it, less their
# endings; to nothing where there are none.
function(_clientcomm_session_files_of target variable)
  get_target_property(files ${target} CLIENTCOMM_SESSION_FILES)
  get_target_property(helper ${target} CLIENTCOMM_EMBEDDED_HELPER)
  if(NOT files AND helper)
    get_target_property(files ${helper} CLIENTCOMM_SESSION_FILES)
  endif()
  if(NOT files)
    set(files "")
  endif()
  set(${variable} "${files}" PARENT_SCOPE)
endfunction()
