# The description for pkg-config names the folders that were asked for, relative or absolute.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

# Describes an installation in /opt/product with the given folders; sets `output` to what pkg-config says
# where that is below <root>.
function(describe root library_folder header_folder)
  file(REMOVE_RECURSE "${WORK}")
  configure("${SOURCE}" "${WORK}/build" -DCMAKE_INSTALL_PREFIX=/opt/product
    "-DCMAKE_INSTALL_LIBDIR=${library_folder}" "-DCMAKE_INSTALL_INCLUDEDIR=${header_folder}"
    -DCLIENTCOMM_BUILD_TESTS=OFF -DCLIENTCOMM_BUILD_EXAMPLES=OFF)
  file(COPY "${WORK}/build/clientcomm.pc" DESTINATION "${root}/lib64/pkgconfig")
  set(ENV{PKG_CONFIG_PATH} "${root}/lib64/pkgconfig")
  run("${PKG_CONFIG}" --cflags --libs clientcomm)
  set(output "${output}" PARENT_SCOPE)
endfunction()

set(root "${WORK}/opt/product")
describe("${root}" lib64 headers)
expect_contains("${output}" "-I${root}/lib64/pkgconfig/../../headers/clientcomm")
expect_contains("${output}" "-L${root}/lib64/pkgconfig/../../lib64 ")
describe("${root}" /opt/elsewhere/lib /opt/other/include)
expect_contains("${output}" "-I/opt/other/include/clientcomm")
expect_contains("${output}" "-L/opt/elsewhere/lib ")
