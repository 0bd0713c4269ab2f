# The target "docs": Doxygen pages from the headers and docs/, built without a warning.
find_program(KELVO_DOXYGEN doxygen)
if(KELVO_DOXYGEN)
  file(GLOB KELVO_DOC_INPUT CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md
       ${PROJECT_SOURCE_DIR}/*/*.h)
  list(FILTER KELVO_DOC_INPUT EXCLUDE REGEX "/(app|bench|test|tools|build)/")
  list(JOIN KELVO_DOC_INPUT " " KELVO_DOC_INPUT)
  configure_file(docs/Doxyfile.in ${PROJECT_BINARY_DIR}/docs/Doxyfile @ONLY)
  add_custom_target(docs
    COMMAND ${KELVO_DOXYGEN} ${PROJECT_BINARY_DIR}/docs/Doxyfile
    # Where the pages look for them; Doxygen copies no pictures from folders below the documents'.
    COMMAND ${CMAKE_COMMAND} -E copy_directory ${PROJECT_SOURCE_DIR}/docs/img
            ${PROJECT_BINARY_DIR}/docs/html/img
    COMMENT "Doxygen pages: docs/html/index.html in the build folder")
endif()
