# Writes the snippets of PAGE below FOLDER.
include("${CMAKE_CURRENT_LIST_DIR}/markdown.cmake")
extract_snippets("${PAGE}" "${FOLDER}")
