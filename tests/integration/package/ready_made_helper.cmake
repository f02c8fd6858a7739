# A host brings a helper that another project has built: its bundle goes in as it is, and again when one
# of its files has changed.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

set(project "${WORK}/project")
set(embedded "${WORK}/build/Host.app/Contents/Resources/Old Helper.app/Contents")

file(REMOVE_RECURSE "${WORK}")
file(WRITE "${project}/vendor/Old Helper.app/Contents/Info.plist"
  "<plist version=\"1.0\"><dict>\n<key>CFBundleIdentifier</key>\n  <string>com.example.old</string>
<key>CFBundleExecutable</key><string>old</string></dict></plist>\n")
file(WRITE "${project}/vendor/Old Helper.app/Contents/Linux/old" "#!/bin/sh\n")
file(CHMOD "${project}/vendor/Old Helper.app/Contents/Linux/old"
  PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
file(WRITE "${project}/host.cpp" "int main() {}\n")
file(WRITE "${project}/CMakeLists.txt" "cmake_minimum_required(VERSION 3.25)
project(Brings CXX)
find_package(ClientComm REQUIRED)
clientcomm_add_application(host NAME Host IDENTIFIER com.example.host VERSION 1 SOURCES host.cpp)
clientcomm_embed_helper(host \"vendor/Old Helper.app\" INSTALL_LOCATION ~/x)
")
configure("${project}" "${WORK}/build")
run("${CMAKE_COMMAND}" --build "${WORK}/build")
foreach(text IN ITEMS "<string>com.example.old</string>" "<string>Old Helper</string>")
  expect_file("${WORK}/build/Host.app/Contents/Info.plist" "${text}")
endforeach()
expect_file("${embedded}/Info.plist" "com.example.old")
run("${embedded}/Linux/old")

file(APPEND "${project}/vendor/Old Helper.app/Contents/Linux/old" "echo newer\n")
run("${CMAKE_COMMAND}" --build "${WORK}/build")
run("${embedded}/Linux/old")
expect_contains("${output}" "newer")
