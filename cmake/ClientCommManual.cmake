# The manual, from the Markdown pages by Sphinx, and the reference of the public headers, by Doxygen:
# the targets `manual` and `reference`, where these tools are installed. A warning or a dead link fails
# the build of either.
find_program(CLIENTCOMM_DOXYGEN doxygen)
find_program(CLIENTCOMM_SPHINX sphinx-build)
find_package(Python3 COMPONENTS Interpreter)
mark_as_advanced(CLIENTCOMM_DOXYGEN CLIENTCOMM_SPHINX)

if(NOT CLIENTCOMM_DOXYGEN OR NOT CLIENTCOMM_SPHINX OR NOT Python3_FOUND)
  if(CLIENTCOMM_BUILD_MANUAL)
    message(FATAL_ERROR "CLIENTCOMM_BUILD_MANUAL needs doxygen, sphinx-build with myst_parser, and Python 3")
  endif()
  return()
endif()

set(manual_sources "${PROJECT_SOURCE_DIR}/docs/manual")
set(manual_dir "${PROJECT_BINARY_DIR}/manual")
set(reference_dir "${manual_dir}/extra/reference")
set(check_html "${PROJECT_SOURCE_DIR}/tools/check_html.py")

# --- The reference ---

get_property(public_headers GLOBAL PROPERTY CLIENTCOMM_PUBLIC_HEADERS)
list(TRANSFORM public_headers PREPEND "${PROJECT_SOURCE_DIR}/ClientComm/")
set(reference_files ${public_headers} "${manual_sources}/reference.md")
list(TRANSFORM reference_files REPLACE "(.+)" "\"\\1\"" OUTPUT_VARIABLE reference_input)
list(JOIN reference_input " " reference_input)
configure_file("${manual_sources}/Doxyfile.in" "${manual_dir}/Doxyfile" @ONLY)
add_custom_command(
  OUTPUT "${manual_dir}/reference.stamp"
  COMMAND "${CMAKE_COMMAND}" -E rm -rf "${reference_dir}"
  COMMAND "${CMAKE_COMMAND}" -E make_directory "${reference_dir}"
  COMMAND "${CLIENTCOMM_DOXYGEN}" "${manual_dir}/Doxyfile"
  COMMAND "${CMAKE_COMMAND}" -E touch "${manual_dir}/reference.stamp"
  DEPENDS ${reference_files} "${manual_dir}/Doxyfile"
  COMMENT "Building the reference" VERBATIM)
add_custom_target(reference DEPENDS "${manual_dir}/reference.stamp")

# --- The manual ---

# Its pages beside each other as in the sources, so that their links hold, and its front page.
file(GLOB pages RELATIVE "${PROJECT_SOURCE_DIR}" CONFIGURE_DEPENDS
  "${PROJECT_SOURCE_DIR}/*.md" "${PROJECT_SOURCE_DIR}/docs/*.md" "${PROJECT_SOURCE_DIR}/docs/lab/*.md"
  "${PROJECT_SOURCE_DIR}/docs/images/*" "${PROJECT_SOURCE_DIR}/docs/lab/performance/*.svg")
set(staged "")
foreach(page IN LISTS pages ITEMS LICENSE docs/manual/index.md)
  string(REPLACE "docs/manual/" "" copy "${manual_dir}/pages/${page}")
  add_custom_command(OUTPUT "${copy}"
    COMMAND "${CMAKE_COMMAND}" -E copy "${PROJECT_SOURCE_DIR}/${page}" "${copy}"
    DEPENDS "${PROJECT_SOURCE_DIR}/${page}" COMMENT "Copying ${page}" VERBATIM)
  list(APPEND staged "${copy}")
endforeach()
add_custom_command(
  OUTPUT "${manual_dir}/manual.stamp"
  COMMAND "${CMAKE_COMMAND}" -E rm -rf "${manual_dir}/html"
  COMMAND "${CLIENTCOMM_SPHINX}" -q -E -W --keep-going -n -b html -c "${manual_sources}"
          -D "release=${PROJECT_VERSION}" -D "sources=${PROJECT_SOURCE_DIR}"
          -D "html_extra_path=${manual_dir}/extra"
          -d "${manual_dir}/doctrees" "${manual_dir}/pages" "${manual_dir}/html"
  COMMAND "${CMAKE_COMMAND}" -E rm -rf "${manual_dir}/html/.buildinfo" "${manual_dir}/html/objects.inv"
  COMMAND "${Python3_EXECUTABLE}" "${check_html}" "${manual_dir}/html"
  COMMAND "${CMAKE_COMMAND}" -E touch "${manual_dir}/manual.stamp"
  DEPENDS ${staged} "${manual_sources}/conf.py" "${manual_sources}/templates/reference.html"
           "${manual_dir}/reference.stamp" "${check_html}"
  COMMENT "Building the manual" VERBATIM)
if(CLIENTCOMM_BUILD_MANUAL)
  set(built_by_default ALL)
endif()
add_custom_target(manual ${built_by_default} DEPENDS "${manual_dir}/manual.stamp")
if(CLIENTCOMM_BUILD_MANUAL)
  install(DIRECTORY "${manual_dir}/html"
    DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT clientcomm_documentation)
endif()
