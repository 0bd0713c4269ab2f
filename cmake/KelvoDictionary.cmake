# kelvo_add_dictionary(TARGET LINKDEF HEADER...): makes a library's classes known to ROOT and Python.
# Headers as users include them, relative to the top folder. The dictionary's two files (.pcm,
# .rootmap) lie beside the library, in the build tree and after the install; they are what makes ROOT
# load it by itself. No path of the machine that built it is in them: util/HeaderPath.cxx tells ROOT
# where the headers are as seen from the library.
function(kelvo_add_dictionary target linkdef)
  # A dictionary keeps the layout of all classes that its headers include.
  file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/*/*.h)
  list(FILTER headers EXCLUDE REGEX "/(app|bench|build|draw|test|tools)/[^/]*$")
  list(TRANSFORM ARGN PREPEND ${KELVO_HEADERS}/ OUTPUT_VARIABLE named)
  # ROOT looks for headers where the folder's property says.
  get_directory_property(folders INCLUDE_DIRECTORIES)
  include_directories(${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_INCLUDEDIR})
  ROOT_GENERATE_DICTIONARY(G__${target} ${named} MODULE ${target} LINKDEF ${linkdef}
                           OPTIONS -noIncludePaths EXTRA_DEPENDENCIES ${headers})
  set_directory_properties(PROPERTIES INCLUDE_DIRECTORIES "${folders}")
  # ROOT's generated code has warnings of its own.
  target_compile_options(G__${target} PRIVATE -w)
endfunction()

# An older build tree has a link to the sources of this name, in which nothing may be made.
if(IS_SYMLINK ${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_INCLUDEDIR})
  file(REMOVE ${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_INCLUDEDIR})
endif()
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_INCLUDEDIR})
file(CREATE_LINK ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR}/${KELVO_HEADER_FOLDER} SYMBOLIC)
