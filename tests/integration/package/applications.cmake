# A user's project builds a host that brings a helper; later builds refresh what changed and nothing
# else; the host installs the helper, which then stands on its own.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

set(project "${WORK}/project")
set(build "${WORK}/build")
set(host "${build}/Consumer & Host.app/Contents")
set(embedded "${host}/Resources/Consumer Helper.app/Contents")

function(rebuild)
  run("${CMAKE_COMMAND}" --build "${build}")
  set(output "${output}" PARENT_SCOPE)
endfunction()

function(expect_nothing_to_do)
  run("${CMAKE_COMMAND}" --build "${build}")
  if(output MATCHES "Copying|Putting|Linking")
    message(FATAL_ERROR "a build without a change did:\n${output}")
  endif()
endfunction()

function(build_all)
  file(REMOVE_RECURSE "${WORK}")
  file(COPY "${CMAKE_CURRENT_LIST_DIR}/consumer/" DESTINATION "${project}")
  configure("${project}" "${build}")
  rebuild()
  expect_file("${embedded}/Info.plist" "<string>1.0</string>")
  expect_file("${embedded}/Resources/en.lproj/InfoPlist.strings" "Consumer")
  expect_nothing_to_do()
endfunction()

# What the application itself wrote in its bundle outlives the refreshing of other files.
function(change_a_resource)
  file(APPEND "${host}/Info.plist" "<!-- written by the application -->")
  file(WRITE "${project}/resources/Notes.txt" "New notes.")
  rebuild()
  expect_file("${host}/Resources/Notes.txt" "New notes.")
  expect_file("${embedded}/Resources/Notes.txt" "New notes.")
  expect_file("${host}/Info.plist" "written by the application")
  expect_nothing_to_do()
endfunction()

function(rename_a_resource)
  file(RENAME "${project}/resources/en.lproj" "${project}/resources/fr.lproj")
  file(READ "${project}/CMakeLists.txt" text)
  string(REPLACE "en.lproj" "fr.lproj" text "${text}")
  file(WRITE "${project}/CMakeLists.txt" "${text}")
  rebuild()
  foreach(bundle IN ITEMS "${host}" "${embedded}")
    expect_file("${bundle}/Resources/fr.lproj/InfoPlist.strings" "Consumer")
    expect_absent("${bundle}/Resources/en.lproj/InfoPlist.strings")
  endforeach()
  expect_nothing_to_do()
endfunction()

function(bring_a_newer_helper)
  configure("${project}" "${build}" -DHELPER_VERSION=1.1)
  rebuild()
  expect_file("${embedded}/Info.plist" "<string>1.1</string>")
  expect_file("${host}/Info.plist" "written by the application")
  expect_nothing_to_do()
endfunction()

# The installed helper runs by its own copy of the library once the host and the package are gone.
function(run_the_host)
  foreach(folder IN ITEMS HOME XDG_CONFIG_HOME XDG_RUNTIME_DIR)
    set(ENV{${folder}} "${WORK}/${folder}")
    file(MAKE_DIRECTORY "$ENV{${folder}}")
    file(CHMOD "$ENV{${folder}}" DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
  endforeach()
  run("${host}/Linux/host")
  foreach(line IN ITEMS
      "CFBundleName: Consumer & Host\n" "CFBundleIdentifier: com.example.consumer-host\n"
      "CFBundleVersion: 1.2.3\n" "PID: P1\n" "A <key> & its: value; <b> = \"$<1:[>\"\n"
      "Helper Bundle indentifiter: com.example.consumer-helper\n"
      "Helepr App name: Consumer Helper\n" "Helper loaction path: ~/Helpers of Consumer\n"
      "notes: found\n")
    expect_contains("${output}" "${line}")
  endforeach()
  set(installed "$ENV{HOME}/Helpers of Consumer/Consumer Helper.app")
  file(REMOVE_RECURSE "${build}")
  run("${installed}/Contents/Linux/Consumer Helper")
  expect_contains("${output}" "${installed}")
endfunction()

build_all()
change_a_resource()
rename_a_resource()
bring_a_newer_helper()
run_the_host()
