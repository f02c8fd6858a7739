# An installation of a user's project has the whole bundles, and what starts the helper at log-in: the host
# runs from there, with the helper that it brings, when the build folder is gone.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

set(build "${WORK}/build")
set(bundle "Consumer & Host.app")

# The files and links below a folder, with what each holds.
function(contents_of folder variable)
  run(sh -c "cd \"$1\" && find . -type l -printf '%p %l\\n' -o -type f -exec sha256sum {} + | sort" sh "${folder}")
  set(${variable} "${output}" PARENT_SCOPE)
endfunction()

# An installed file for log-in is the one that was made, and all users can read it.
function(expect_session_file name folder)
  run(cmp "${build}/${name}" "${folder}/${name}")
  run(find "${folder}/${name}" ! -perm -o=r)
  expect_contains("|${output}|" "||")
endfunction()

file(REMOVE_RECURSE "${WORK}")
configure("${CMAKE_CURRENT_LIST_DIR}/consumer" "${build}")

# Before the build there is nothing to install.
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${build}" --prefix "${WORK}/early"
                RESULT_VARIABLE result ERROR_VARIABLE errors OUTPUT_QUIET)
if(result EQUAL 0)
  message(FATAL_ERROR "an installation without a build succeeded")
endif()
string(REGEX REPLACE "[ \n]+" " " errors "${errors}")  # CMake breaks the lines of a message
expect_contains("${errors}" "was not built")

# A build for one user alone, installed for all.
run(sh -c "umask 077 && \"$1\" --build \"$2\"" sh "${CMAKE_COMMAND}" "${build}")
run("${CMAKE_COMMAND}" --install "${build}" --prefix "${WORK}/prefix" --component helper)
expect_absent("${WORK}/prefix/apps of mine")
expect_absent("${WORK}/prefix/etc")
set(identifier com.example.consumer-helper)
expect_session_file(${identifier}.desktop "${WORK}/prefix/autostart")
contents_of("${build}/helper/Consumer Helper.app" built)
contents_of("${WORK}/prefix/helpers/Consumer Helper.app" installed)
expect_contains("|${installed}|" "|${built}|")
run("${CMAKE_COMMAND}" --install "${build}" --prefix "${WORK}/prefix")
expect_session_file(${identifier}.service "${WORK}/prefix/lib/systemd/user")
expect_session_file(${identifier}.desktop "${WORK}/prefix/etc/xdg/autostart")
set(host "${WORK}/prefix/apps of mine/${bundle}")
contents_of("${build}/${bundle}" built)
contents_of("${host}" installed)
expect_contains("|${installed}|" "|${built}|")
run(find "${host}" ! -type l ! -perm -o=r)
expect_contains("|${output}|" "||")
run(find "${host}" -type f -perm /111 -printf "%P\\n")
expect_contains("${output}" "Contents/Linux/host\n")
expect_contains("${output}" "Contents/Resources/Consumer Helper.app/Contents/Linux/Consumer Helper\n")
string(REGEX MATCHALL "\n" lines "${output}")
list(LENGTH lines count)
if(NOT count EQUAL 2)
  message(FATAL_ERROR "these can be executed:\n${output}")
endif()

file(REMOVE_RECURSE "${build}")
foreach(folder IN ITEMS HOME XDG_CONFIG_HOME XDG_RUNTIME_DIR)
  set(ENV{${folder}} "${WORK}/${folder}")
  file(MAKE_DIRECTORY "$ENV{${folder}}")
  file(CHMOD "$ENV{${folder}}" DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
endforeach()
run("${host}/Contents/Linux/host")
expect_contains("${output}" "Helepr App name: Consumer Helper\n")
run("$ENV{HOME}/Helpers of Consumer/Consumer Helper.app/Contents/Linux/Consumer Helper")
