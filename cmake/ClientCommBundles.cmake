# Functions that lay out application bundles:
#
#   <dir>/<NAME>.app/Contents/Info.plist
#                             Linux/<executable>
#                             Frameworks/            the ClientComm library, the application's own copy
#                             Resources/
#
# A build refreshes only what changed. In particular a file that the running application has written
# in its bundle (its switches, in Info.plist and in the strings files) stays as it is until its source
# changes.
include_guard(GLOBAL)
cmake_policy(VERSION 3.25)
include("${CMAKE_CURRENT_LIST_DIR}/ClientCommInstalledBundle.cmake")

# clientcomm_add_application(<target>
#   NAME <name>                     name of the bundle, and CFBundleName
#   IDENTIFIER <identifier>         CFBundleIdentifier
#   VERSION <version>               CFBundleVersion
#   SOURCES <file>...
#   [EXECUTABLE <name>]             CFBundleExecutable; NAME unless given
#   [INFO "<key>=<text>"...]        further texts of the Info dictionary; keys may have spaces
#   [BOOLEANS "<key>=true|false"...]
#   [RESOURCES <path>...]           files, folders, or the contents of a folder: "folder/"
#   [OUTPUT_DIRECTORY <dir>])       where the bundle goes; the current binary folder unless given
#
# Makes an executable that links ClientComm::ClientComm, inside a bundle of its own. Building <target>
# completes the bundle. Its folder is the target's property CLIENTCOMM_BUNDLE_DIR.
function(clientcomm_add_application target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "NAME;IDENTIFIER;VERSION;EXECUTABLE;OUTPUT_DIRECTORY"
                        "SOURCES;INFO;BOOLEANS;RESOURCES")
  set(function clientcomm_add_application)
  _clientcomm_check_application_arguments(NAME IDENTIFIER VERSION SOURCES)
  add_executable(${target})
  target_sources(${target} PRIVATE ${arg_SOURCES})
  # The arguments one by one: a list would break at the brackets that a text may hold.
  set(call "clientcomm_make_bundle(${target}")
  set(section "")
  math(EXPR last "${ARGC} - 1")
  foreach(index RANGE 1 ${last})
    if("${ARGV${index}}" MATCHES
       "^(NAME|IDENTIFIER|VERSION|EXECUTABLE|OUTPUT_DIRECTORY|SOURCES|INFO|BOOLEANS|RESOURCES)$")
      set(section "${CMAKE_MATCH_1}")
    endif()
    if(NOT section STREQUAL "SOURCES")
      string(APPEND call " [==[${ARGV${index}}]==]")
    endif()
  endforeach()
  cmake_language(EVAL CODE "${call})")
endfunction()

# clientcomm_make_bundle(<target> NAME <name> IDENTIFIER <identifier> VERSION <version> ...)
#
# The same for a <target> that add_executable made in this folder, with all arguments but SOURCES.
function(clientcomm_make_bundle target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "NAME;IDENTIFIER;VERSION;EXECUTABLE;OUTPUT_DIRECTORY"
                        "INFO;BOOLEANS;RESOURCES")
  set(function clientcomm_make_bundle)
  _clientcomm_check_application_arguments(NAME IDENTIFIER VERSION)
  _clientcomm_check_executable(${target})
  if(NOT DEFINED arg_EXECUTABLE)
    set(arg_EXECUTABLE "${arg_NAME}")
  endif()
  _clientcomm_bundle_directory(bundle ${target} "${arg_OUTPUT_DIRECTORY}" "${arg_NAME}")

  target_link_libraries(${target} PRIVATE ClientComm::ClientComm)
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME "${arg_EXECUTABLE}"
    RUNTIME_OUTPUT_DIRECTORY "${bundle}/Contents/Linux"
    BUILD_WITH_INSTALL_RPATH ON
    INSTALL_RPATH "\$ORIGIN/../Frameworks"
    CLIENTCOMM_BUNDLE_DIR "${bundle}"
    CLIENTCOMM_BUNDLE_NAME "${arg_NAME}"
    CLIENTCOMM_BUNDLE_IDENTIFIER "${arg_IDENTIFIER}"
    CLIENTCOMM_BUNDLE_FILES "")

  _clientcomm_set_info(${target} CFBundleInfoDictionaryVersion string "6.0")
  _clientcomm_set_info(${target} CFBundlePackageType string "APPL")
  _clientcomm_set_info(${target} CFBundleName string "${arg_NAME}")
  _clientcomm_set_info(${target} CFBundleIdentifier string "${arg_IDENTIFIER}")
  _clientcomm_set_info(${target} CFBundleVersion string "${arg_VERSION}")
  _clientcomm_set_info(${target} CFBundleExecutable string "${arg_EXECUTABLE}")

  # Taken from the arguments one by one: a list would break at the brackets that a text may hold.
  set(section "")
  math(EXPR last "${ARGC} - 1")
  foreach(index RANGE 1 ${last})
    if("${ARGV${index}}" MATCHES
       "^(NAME|IDENTIFIER|VERSION|EXECUTABLE|OUTPUT_DIRECTORY|SOURCES|INFO|BOOLEANS|RESOURCES)$")
      set(section "${CMAKE_MATCH_1}")
    elseif(section STREQUAL "INFO")
      _clientcomm_set_info_assignment(${target} string "${ARGV${index}}")
    elseif(section STREQUAL "BOOLEANS")
      _clientcomm_set_info_assignment(${target} boolean "${ARGV${index}}")
    endif()
  endforeach()

  _clientcomm_write_info(${target})
  _clientcomm_copy_library(${target})
  _clientcomm_copy_resources(${target} ${arg_RESOURCES})
endfunction()

# clientcomm_embed_helper(<host> <helper> INSTALL_LOCATION <folder>)
#
# Puts the whole bundle of the application <helper> among the resources of the application <host>,
# and names it in the host's Info dictionary, by the keys under which the library looks for it.
# INSTALL_LOCATION is the folder that the host installs the helper in: an absolute path, or one that
# begins with "~". <host> is made by clientcomm_add_application. So is <helper>, before this call; or it
# is the path of a ready-made bundle, <folder>/<name>.app, with an Info.plist in XML. Both have
# identifiers of their own.
function(clientcomm_embed_helper host helper)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "INSTALL_LOCATION" "")
  if(DEFINED arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "clientcomm_embed_helper: unknown arguments: ${arg_UNPARSED_ARGUMENTS}")
  endif()
  _clientcomm_require_application(clientcomm_embed_helper ${host})
  if(helper MATCHES "[.]app/?$")
    _clientcomm_read_bundle("${helper}")
  else()
    _clientcomm_require_application(clientcomm_embed_helper ${helper})
    get_target_property(name ${helper} CLIENTCOMM_BUNDLE_NAME)
    get_target_property(helper_identifier ${helper} CLIENTCOMM_BUNDLE_IDENTIFIER)
    get_target_property(helper_bundle ${helper} CLIENTCOMM_BUNDLE_DIR)
    set(helper_files ${helper} "$<GENEX_EVAL:$<TARGET_PROPERTY:${helper},CLIENTCOMM_BUNDLE_FILES>>")
    set_property(TARGET ${host} PROPERTY CLIENTCOMM_EMBEDDED_HELPER ${helper})
  endif()

  if(NOT "${arg_INSTALL_LOCATION}" MATCHES "^(/|~/|~$)")
    message(FATAL_ERROR "clientcomm_embed_helper(${host} ${helper}): INSTALL_LOCATION is missing, "
                        "or is no absolute path and does not begin with ~")
  endif()
  _clientcomm_check_identifier(${host} "${helper}" "${helper_identifier}")
  _clientcomm_set_info(${host} "Helper Bundle indentifiter" string "${helper_identifier}")
  _clientcomm_set_info(${host} "Helepr App name" string "${name}")
  _clientcomm_set_info(${host} "Helper loaction path" string "${arg_INSTALL_LOCATION}")

  get_target_property(host_bundle ${host} CLIENTCOMM_BUNDLE_DIR)
  set(embedded "${host_bundle}/Contents/Resources/${name}.app")
  add_custom_command(
    OUTPUT "${embedded}/Contents/Info.plist"
    COMMAND "${CMAKE_COMMAND}" "-DFROM=${helper_bundle}" "-DTO=${embedded}"
            -P "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/ClientCommMirror.cmake"
    COMMAND "${CMAKE_COMMAND}" -E touch "${embedded}/Contents/Info.plist"
    DEPENDS ${helper_files} "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/ClientCommMirror.cmake"
    COMMENT "Putting ${name}.app into ${host}"
    VERBATIM)
  _clientcomm_add_bundle_files(${host} ${host}_bundle_helper "${embedded}/Contents/Info.plist")
endfunction()

# clientcomm_add_session_files(<helper> INSTALL_LOCATION <folder> [OUTPUT_DIRECTORY <dir>])
#
# Writes two files that start the application <helper> at log-in: <identifier>.service, a user unit of
# systemd, and <identifier>.desktop, for the autostart folder of a desktop. Install one of them, for
# example by clientcomm_install_bundle, which takes those of the last call. INSTALL_LOCATION is the one of
# clientcomm_embed_helper. The files go into <dir>, the current binary folder unless given.
function(clientcomm_add_session_files helper)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "INSTALL_LOCATION;OUTPUT_DIRECTORY" "")
  if(DEFINED arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "clientcomm_add_session_files: unknown arguments: ${arg_UNPARSED_ARGUMENTS}")
  endif()
  _clientcomm_require_application(clientcomm_add_session_files ${helper})
  get_target_property(CLIENTCOMM_HELPER_NAME ${helper} CLIENTCOMM_BUNDLE_NAME)
  get_target_property(CLIENTCOMM_HELPER_IDENTIFIER ${helper} CLIENTCOMM_BUNDLE_IDENTIFIER)
  get_target_property(executable ${helper} OUTPUT_NAME)
  set(program "${arg_INSTALL_LOCATION}/${CLIENTCOMM_HELPER_NAME}.app/Contents/Linux/${executable}")
  # Characters that mean something to systemd, to desktop files or to the shell.
  if(NOT "${arg_INSTALL_LOCATION}" MATCHES "^(/|~/|~$)" OR program MATCHES [=[["'`$%\\]]=])
    message(FATAL_ERROR "clientcomm_add_session_files(${helper}): INSTALL_LOCATION is missing, is no "
                        "absolute path and does not begin with ~, or the path ${program} has one of "
                        [[the characters " ' ` $ % \]])
  endif()
  string(REGEX REPLACE "^~" "%h" CLIENTCOMM_HELPER_SYSTEMD_PROGRAM "${program}")
  set(CLIENTCOMM_HELPER_DESKTOP_COMMAND [["@program@" --unless-running]])
  if(program MATCHES "^~")
    # The shell finds the home folder. Quotes and dollar sign are escaped once as a part of a quoted
    # argument, and their backslashes once more as a part of the file.
    string(SUBSTRING "${program}" 1 -1 program)
    set(CLIENTCOMM_HELPER_DESKTOP_COMMAND
        [[/bin/sh -c "exec \\"\\$HOME@program@\\" --unless-running"]])
  endif()
  string(CONFIGURE "${CLIENTCOMM_HELPER_DESKTOP_COMMAND}" CLIENTCOMM_HELPER_DESKTOP_COMMAND @ONLY)
  set(directory "${arg_OUTPUT_DIRECTORY}")
  cmake_path(ABSOLUTE_PATH directory BASE_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}" NORMALIZE)
  # An installation says where they are; in the sources they are beside this file.
  set(templates "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/session")
  if(DEFINED ClientComm_SESSION_DIR)
    set(templates "${ClientComm_SESSION_DIR}")
  endif()
  set(files "${directory}/${CLIENTCOMM_HELPER_IDENTIFIER}")
  foreach(kind IN ITEMS service desktop)
    configure_file("${templates}/helper.${kind}.in" "${files}.${kind}" @ONLY)
  endforeach()
  # Less the endings.
  set_property(TARGET ${helper} PROPERTY CLIENTCOMM_SESSION_FILES "${files}")
endfunction()

function(_clientcomm_check_executable target)
  if(NOT TARGET ${target})
    message(FATAL_ERROR "clientcomm_make_bundle: there is no target ${target}")
  endif()
  get_target_property(type ${target} TYPE)
  get_target_property(folder ${target} SOURCE_DIR)
  if(NOT type STREQUAL "EXECUTABLE" OR NOT folder STREQUAL CMAKE_CURRENT_SOURCE_DIR)
    message(FATAL_ERROR "clientcomm_make_bundle: ${target} is no executable of this folder")
  endif()
  get_target_property(name ${target} CLIENTCOMM_BUNDLE_NAME)
  if(name)
    message(FATAL_ERROR "clientcomm_make_bundle: ${target} is a bundle already")
  endif()
endfunction()

# Ends a call of <function> for what is no application with a bundle.
function(_clientcomm_require_application function application)
  if(NOT TARGET ${application})
    message(FATAL_ERROR "${function}: there is no target ${application}")
  endif()
  get_target_property(name ${application} CLIENTCOMM_BUNDLE_NAME)
  if(NOT name)
    message(FATAL_ERROR "${function}: ${application} was not made by clientcomm_add_application or "
                        "clientcomm_make_bundle")
  endif()
endfunction()

# Sets `name`, `helper_identifier`, `helper_bundle` and `helper_files` to what the ready-made bundle at
# <path> has.
function(_clientcomm_read_bundle path)
  cmake_path(ABSOLUTE_PATH path BASE_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}" NORMALIZE)
  string(REGEX REPLACE "/$" "" path "${path}")
  if(NOT EXISTS "${path}/Contents/Info.plist")
    message(FATAL_ERROR "clientcomm_embed_helper: there is no bundle at ${path}")
  endif()
  cmake_path(GET path FILENAME name)
  string(REGEX REPLACE "[.]app$" "" name "${name}")
  file(READ "${path}/Contents/Info.plist" info)
  set(identifier "")
  if(info MATCHES "<key>CFBundleIdentifier</key>[ \t\r\n]*<string>([^<]*)</string>")
    set(identifier "${CMAKE_MATCH_1}")
  endif()
  file(GLOB_RECURSE files CONFIGURE_DEPENDS LIST_DIRECTORIES false "${path}/*")
  set(name "${name}" PARENT_SCOPE)
  set(helper_identifier "${identifier}" PARENT_SCOPE)
  set(helper_bundle "${path}" PARENT_SCOPE)
  set(helper_files ${files} PARENT_SCOPE)
endfunction()

# Calls are addressed by identifier: without one the helper cannot be reached, and with that of its host
# the host would call itself.
function(_clientcomm_check_identifier host helper identifier)
  get_target_property(host_identifier ${host} CLIENTCOMM_BUNDLE_IDENTIFIER)
  if("${identifier}" MATCHES "^[ \t]*$|-NOTFOUND$")
    message(FATAL_ERROR "clientcomm_embed_helper(${host} ${helper}): ${helper} has no identifier")
  endif()
  if("${identifier}" STREQUAL "${host_identifier}")
    message(FATAL_ERROR "clientcomm_embed_helper(${host} ${helper}): host and helper have the same "
                        "identifier, ${identifier}")
  endif()
endfunction()

# Checks the arguments of `function`; the given ones must not be missing.
macro(_clientcomm_check_application_arguments)
  if(DEFINED arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR
      "${function}(${target}): unknown arguments: ${arg_UNPARSED_ARGUMENTS}")
  endif()
  foreach(required IN ITEMS ${ARGN})
    if("${arg_${required}}" MATCHES "^[ \t]*$")
      message(FATAL_ERROR "${function}(${target}): ${required} is missing")
    endif()
  endforeach()
  if("${arg_IDENTIFIER}" MATCHES "[ \t]")
    message(FATAL_ERROR "${function}(${target}): "
                        "the identifier \"${arg_IDENTIFIER}\" contains a blank")
  endif()
  if("${arg_NAME}" MATCHES "[/;<>#]" OR "${arg_EXECUTABLE}" MATCHES "[/;<>#]")
    message(FATAL_ERROR
      "${function}(${target}): a name must not contain any of / ; < > #")
  endif()
endmacro()

# Sets <variable> to the folder of the bundle, one per configuration where a build tree has several.
function(_clientcomm_bundle_directory variable target directory name)
  cmake_path(ABSOLUTE_PATH directory BASE_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}" NORMALIZE)
  cmake_path(APPEND directory "${name}.app" OUTPUT_VARIABLE bundle)
  get_property(owner GLOBAL PROPERTY "CLIENTCOMM_BUNDLE_AT_${bundle}")
  if(owner)
    message(FATAL_ERROR "clientcomm_add_application(${target}): ${owner} is already at ${bundle}; "
                        "give another OUTPUT_DIRECTORY")
  endif()
  set_property(GLOBAL PROPERTY "CLIENTCOMM_BUNDLE_AT_${bundle}" ${target})
  get_property(is_multi_config GLOBAL PROPERTY GENERATOR_IS_MULTI_CONFIG)
  if(is_multi_config)
    set(bundle "${directory}/$<CONFIG>/${name}.app")
  endif()
  set(${variable} "${bundle}" PARENT_SCOPE)
endfunction()

# Adds one entry to the Info dictionary.
function(_clientcomm_set_info target key type value)
  _clientcomm_escape_xml(key "${key}")
  get_target_property(entries ${target} CLIENTCOMM_BUNDLE_INFO)
  string(FIND "${entries}" "<key>${key}</key>" position)
  if(NOT position EQUAL -1)
    message(FATAL_ERROR "${target}: the Info key \"${key}\" is set twice")
  endif()
  if(type STREQUAL "boolean")
    string(TOLOWER "${value}" value)
    if(NOT value MATCHES "^(true|false)$")
      message(FATAL_ERROR "${target}: the value of \"${key}\" must be true or false")
    endif()
    set(element "<${value}/>")
  else()
    _clientcomm_escape_xml(value "${value}")
    set(element "<string>${value}</string>")
  endif()
  set_property(TARGET ${target} APPEND_STRING PROPERTY CLIENTCOMM_BUNDLE_INFO
    "  <key>${key}</key>\n  ${element}\n")
endfunction()

# Adds one entry to the Info dictionary, given as "key=value". The library looks keys up letter for
# letter: "PID = P100" would set a key that ends in a blank, which is never read.
function(_clientcomm_set_info_assignment target type assignment)
  string(FIND "${assignment}" "=" position)
  if(position LESS 1 OR "${assignment}" MATCHES "^[ \t]*=")
    message(FATAL_ERROR "${target}: \"${assignment}\" is not of the form key=value")
  endif()
  if("${assignment}" MATCHES "^[ \t]|^[^=]*[ \t]=|^[^=]*=[ \t]")
    message(FATAL_ERROR "${target}: \"${assignment}\" has a blank before the key or beside the \"=\"")
  endif()
  string(SUBSTRING "${assignment}" 0 ${position} key)
  math(EXPR position "${position} + 1")
  string(SUBSTRING "${assignment}" ${position} -1 value)
  _clientcomm_set_info(${target} "${key}" ${type} "${value}")
endfunction()

# The dollar sign is escaped too, because the text goes through generator expressions.
function(_clientcomm_escape_xml variable text)
  string(ASCII 13 carriage_return)
  string(REPLACE "&" "&amp;" text "${text}")
  string(REPLACE "<" "&lt;" text "${text}")
  string(REPLACE ">" "&gt;" text "${text}")
  string(REPLACE "$" "&#36;" text "${text}")
  string(REPLACE "${carriage_return}" "&#13;" text "${text}")
  set(${variable} "${text}" PARENT_SCOPE)
endfunction()

# Writes the Info dictionary beside the bundle when the build is generated, with what was set until
# then, and copies it in when it differs from the last one.
function(_clientcomm_write_info target)
  set(generated "${CMAKE_CURRENT_BINARY_DIR}/${target}.bundle/Info.plist")
  string(CONCAT header
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<plist version=\"1.0\">\n<dict>\n")
  file(GENERATE OUTPUT "${generated}" CONTENT
    "${header}$<TARGET_PROPERTY:${target},CLIENTCOMM_BUNDLE_INFO></dict>\n</plist>\n")
  _clientcomm_copy_files(${target} ${target}_bundle_info "${generated}" "Info.plist")
endfunction()

# Gives the bundle its own copy of the library, under the name that the executable asks for.
function(_clientcomm_copy_library target)
  get_target_property(bundle ${target} CLIENTCOMM_BUNDLE_DIR)
  set(frameworks "${bundle}/Contents/Frameworks")
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND "${CMAKE_COMMAND}"
            "-DFROM=$<TARGET_FILE:ClientComm::ClientComm>"
            "-DTO=${frameworks}/$<TARGET_FILE_NAME:ClientComm::ClientComm>"
            "-DLINK=$<TARGET_SONAME_FILE_NAME:ClientComm::ClientComm>"
            -P "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/ClientCommMirror.cmake"
    VERBATIM)
endfunction()

function(_clientcomm_copy_resources target)
  set(pairs "")
  foreach(resource IN LISTS ARGN)
    set(contents_only FALSE)
    if(resource MATCHES "/$")
      set(contents_only TRUE)
    endif()
    cmake_path(ABSOLUTE_PATH resource BASE_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}" NORMALIZE)
    string(REGEX REPLACE "/$" "" resource "${resource}")
    if(NOT IS_DIRECTORY "${resource}")
      cmake_path(GET resource FILENAME name)
      list(APPEND pairs "${resource}" "Resources/${name}")
      continue()
    endif()
    set(base "${resource}")
    if(NOT contents_only)
      cmake_path(GET resource PARENT_PATH base)
    endif()
    file(GLOB_RECURSE files CONFIGURE_DEPENDS LIST_DIRECTORIES false "${resource}/*")
    foreach(file IN LISTS files)
      cmake_path(RELATIVE_PATH file BASE_DIRECTORY "${base}" OUTPUT_VARIABLE name)
      list(APPEND pairs "${file}" "Resources/${name}")
    endforeach()
  endforeach()
  _clientcomm_copy_files(${target} ${target}_bundle_resources ${pairs})
endfunction()

# Copies files into the bundle, each when it is newer than its copy. <pairs> are a file and its place
# below Contents, by turns.
function(_clientcomm_copy_files target step)
  get_target_property(bundle ${target} CLIENTCOMM_BUNDLE_DIR)
  set(pairs ${ARGN})
  set(copies "")
  while(pairs)
    list(POP_FRONT pairs file place)
    set(copy "${bundle}/Contents/${place}")
    add_custom_command(
      OUTPUT "${copy}"
      COMMAND "${CMAKE_COMMAND}" "-DFROM=${file}" "-DTO=${copy}"
              -P "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/ClientCommMirror.cmake"
      COMMAND "${CMAKE_COMMAND}" -E touch "${copy}"
      DEPENDS "${file}"
      COMMENT "Copying ${place} of ${target}"
      VERBATIM)
    list(APPEND copies "${copy}")
  endwhile()
  _clientcomm_remove_former_copies(${step} ${copies})
  if(copies)
    _clientcomm_add_bundle_files(${target} ${step} ${copies})
  endif()
endfunction()

# Removes the copies of files that were resources when the build was last configured, and are no more.
function(_clientcomm_remove_former_copies step)
  set(record "${CMAKE_CURRENT_BINARY_DIR}/${step}.copies")
  if(EXISTS "${record}")
    file(STRINGS "${record}" former ENCODING UTF-8)
    list(REMOVE_ITEM former ${ARGN})
    foreach(copy IN LISTS former)
      file(REMOVE "${copy}")
      foreach(config IN LISTS CMAKE_CONFIGURATION_TYPES)
        string(REPLACE "$<CONFIG>" "${config}" path "${copy}")
        file(REMOVE "${path}")
      endforeach()
    endforeach()
  endif()
  list(JOIN ARGN "\n" text)
  file(WRITE "${record}" "${text}\n")
endfunction()

# Makes files part of the bundle that building <target> completes.
function(_clientcomm_add_bundle_files target step)
  add_custom_target(${step} DEPENDS ${ARGN})
  add_dependencies(${target} ${step})
  set_property(TARGET ${target} APPEND PROPERTY CLIENTCOMM_BUNDLE_FILES ${ARGN})
endfunction()
