# The files that start a helper at log-in are ones that systemd and desktops take, and start it.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

set(home "${WORK}/home of a user")
set(build "${WORK}/build")
set(location ".local/lib/my company")
file(REMOVE_RECURSE "${WORK}")
configure("${CMAKE_CURRENT_LIST_DIR}/session" "${build}" "-DLOCATION=~/${location}" "-DROOT=${WORK}/opt")

# Helpers that only say how they were called.
foreach(folder IN ITEMS "${home}/${location}" "${WORK}/opt")
  set(program "${folder}/Session Helper.app/Contents/Linux/Session Helper")
  file(WRITE "${program}" "#!/bin/sh\nprintf '%s\\n' \"$0\" \"$@\" >\"${WORK}/called.new\"\n"
                          "mv \"${WORK}/called.new\" \"${WORK}/called\"\n")
  file(CHMOD "${program}" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
endforeach()

# Launches the desktop file and compares how the helper was called.
function(expect_launch file program)
  file(REMOVE "${WORK}/called")
  run("${CMAKE_COMMAND}" -E env "HOME=${home}" "${GIO}" launch "${file}")
  foreach(attempt RANGE 200)
    if(EXISTS "${WORK}/called")
      break()
    endif()
    execute_process(COMMAND "${CMAKE_COMMAND}" -E sleep 0.1)
  endforeach()
  file(READ "${WORK}/called" called)
  if(NOT called STREQUAL "${program}\n--unless-running\n")
    message(FATAL_ERROR "${file} starts:\n${called}")
  endif()
endfunction()

find_program(GIO gio)
find_program(DESKTOP_FILE_VALIDATE desktop-file-validate)
find_program(SYSTEMD_ANALYZE systemd-analyze)
set(relative "${build}/com.example.sessionhelper")
set(absolute "${build}/absolute/com.example.sessionhelper")
foreach(file IN ITEMS "${relative}" "${absolute}")
  if(DESKTOP_FILE_VALIDATE)
    run("${DESKTOP_FILE_VALIDATE}" "${file}.desktop")
    if(output)
      message(FATAL_ERROR "desktop-file-validate: ${output}")
    endif()
  endif()
  if(SYSTEMD_ANALYZE)
    run("${CMAKE_COMMAND}" -E env "HOME=${home}" "XDG_RUNTIME_DIR=${WORK}" "${SYSTEMD_ANALYZE}"
        --user verify "${file}.service")
    if(output MATCHES "sessionhelper[.]service")
      message(FATAL_ERROR "systemd-analyze: ${output}")
    endif()
  endif()
endforeach()
expect_file("${relative}.service" "ExecStart=\"%h/${location}/Session Helper.app/Contents/Linux/Session Helper\" --unless-running\n")
if(GIO)
  expect_launch("${relative}.desktop" "${home}/${location}/Session Helper.app/Contents/Linux/Session Helper")
  expect_launch("${absolute}.desktop" "${WORK}/opt/Session Helper.app/Contents/Linux/Session Helper")
endif()

# What these formats cannot name is refused when the project is configured.
foreach(wrong IN ITEMS "relative/folder" "/opt/100%" "~/it's" "/opt/$HOME")
  execute_process(
    COMMAND "${CMAKE_COMMAND}" -S "${CMAKE_CURRENT_LIST_DIR}/session" -B "${build}" "-DLOCATION=${wrong}"
    RESULT_VARIABLE result OUTPUT_QUIET ERROR_VARIABLE output)
  if(result EQUAL 0 OR NOT output MATCHES "INSTALL_LOCATION is missing")
    message(FATAL_ERROR "${wrong} was not refused: ${output}")
  endif()
endforeach()
