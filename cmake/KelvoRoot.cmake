# Finds ROOT and makes its targets usable. Read by the build and by the installed package.
#
# Order: an installed ROOT (ROOT_DIR, ROOTSYS, CMAKE_PREFIX_PATH, root-config on the PATH), else
# the official wheel in the virtual environment ".venv" of the checkout.
set(KELVO_ROOT_MINIMUM 6.28)

# The wheel's CMake files name a folder "mock_site_packages" that the wheel itself does not hold.
# A link of that name to site-packages is all they need.
function(kelvo_mend_wheel site_packages)
  get_filename_component(parent ${site_packages} DIRECTORY)
  if(NOT EXISTS ${parent}/mock_site_packages)
    file(CREATE_LINK site-packages ${parent}/mock_site_packages SYMBOLIC)
  endif()
endfunction()

if(NOT ROOT_DIR AND DEFINED ENV{ROOTSYS} AND EXISTS $ENV{ROOTSYS}/cmake/ROOTConfig.cmake)
  set(ROOT_DIR $ENV{ROOTSYS}/cmake CACHE PATH "Folder of ROOTConfig.cmake")
endif()
# A build of the Python package has the wheel among what the package needs.
foreach(prefix IN LISTS CMAKE_PREFIX_PATH)
  if(NOT ROOT_DIR AND EXISTS ${prefix}/ROOT/cmake/ROOTConfig.cmake)
    set(ROOT_DIR ${prefix}/ROOT/cmake CACHE PATH "Folder of ROOTConfig.cmake" FORCE)
  endif()
endforeach()
if(NOT ROOT_DIR)
  find_package(ROOT ${KELVO_ROOT_MINIMUM} QUIET CONFIG)
endif()
if(NOT ROOT_DIR)
  find_program(KELVO_ROOT_CONFIG root-config)
  if(KELVO_ROOT_CONFIG)
    execute_process(COMMAND ${KELVO_ROOT_CONFIG} --prefix
                    OUTPUT_VARIABLE kelvo_root_prefix OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(EXISTS ${kelvo_root_prefix}/cmake/ROOTConfig.cmake)
      set(ROOT_DIR ${kelvo_root_prefix}/cmake CACHE PATH "Folder of ROOTConfig.cmake" FORCE)
    endif()
  endif()
endif()
if(NOT ROOT_DIR)
  file(GLOB kelvo_wheels ${CMAKE_CURRENT_LIST_DIR}/../.venv/lib/python3*/site-packages/ROOT/cmake)
  foreach(wheel IN LISTS kelvo_wheels)
    get_filename_component(wheel ${wheel} ABSOLUTE)
    set(ROOT_DIR ${wheel} CACHE PATH "Folder of ROOTConfig.cmake" FORCE)
  endforeach()
endif()
set(KELVO_ROOT_IS_WHEEL OFF)
if(ROOT_DIR MATCHES "^(.*/site-packages)/ROOT/cmake/?$")
  set(KELVO_ROOT_IS_WHEEL ON)
  kelvo_mend_wheel(${CMAKE_MATCH_1})
endif()

find_package(ROOT ${KELVO_ROOT_MINIMUM} CONFIG QUIET
             COMPONENTS Core Matrix Physics MathCore RIO Tree ROOTDataFrame Hist Graf Gpad)
if(NOT ROOT_FOUND)
  message(FATAL_ERROR
    "kelvo needs ROOT ${KELVO_ROOT_MINIMUM} or newer and found none. Either make an installed one "
    "known (source its thisroot.sh, or set ROOT_DIR or CMAKE_PREFIX_PATH), or run scripts/setup, "
    "which puts the official wheel into .venv.")
endif()
message(STATUS "kelvo: ROOT ${ROOT_VERSION} in ${ROOT_DIR}")

# The shared libraries that came with the wheel are found at run time through ROOT's own run path,
# but the linker must be told of them.
set(KELVO_ROOT_LINK_OPTION "")
if(ROOT_DIR MATCHES "^(.*/site-packages)/ROOT/cmake/?$")
  set(kelvo_wheel_libraries ${CMAKE_MATCH_1}/root.libs)
  if(EXISTS ${kelvo_wheel_libraries})
    set(KELVO_ROOT_LINK_OPTION "LINKER:-rpath-link,${kelvo_wheel_libraries}")
  endif()
endif()

# Tables in the format that follows TTree: stable since 6.36.
if(ROOT_VERSION VERSION_GREATER_EQUAL 6.36 AND TARGET ROOT::ROOTNTuple)
  set(KELVO_ROOT_HAS_RNTUPLE ON)
else()
  set(KELVO_ROOT_HAS_RNTUPLE OFF)
endif()

if(EXISTS ${ROOT_INCLUDE_DIRS}/TGeoMaterial.h)
  set(KELVO_ROOT_HAS_GEOMETRY ON)
else()
  set(KELVO_ROOT_HAS_GEOMETRY OFF)
endif()

# Without this a project that adds kelvo as a subdirectory would not see the targets that
# kelvo::kelvo links to.
if(NOT CMAKE_SOURCE_DIR STREQUAL CMAKE_CURRENT_SOURCE_DIR)
  get_property(kelvo_imported DIRECTORY PROPERTY IMPORTED_TARGETS)
  foreach(target IN LISTS kelvo_imported)
    set_target_properties(${target} PROPERTIES IMPORTED_GLOBAL TRUE)
  endforeach()
endif()
