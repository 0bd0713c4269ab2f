# What every library and program of the project has in common.
option(KELVO_WARNINGS_AS_ERRORS "Treat compiler warnings as errors" ${KELVO_TOP_LEVEL})
set(KELVO_SANITIZE "" CACHE STRING "Sanitizers for our own code, such as address,undefined")

# CMake leaves folders inside the project out of an installed run path, and the wheel's lies there.
get_target_property(KELVO_ROOT_LIBRARY ROOT::Core LOCATION)
get_filename_component(KELVO_ROOT_LIBDIR ${KELVO_ROOT_LIBRARY} DIRECTORY)

# In a Python wheel libraries and program find those of ROOT's wheel beside it, wherever both are
# installed.
if(SKBUILD AND KELVO_ROOT_IS_WHEEL)
  set(KELVO_RUN_PATH "$ORIGIN;$ORIGIN/../lib;$ORIGIN/../../ROOT/lib")
  set(CMAKE_INSTALL_RPATH_USE_LINK_PATH OFF)
else()
  set(KELVO_RUN_PATH "$ORIGIN;$ORIGIN/../${CMAKE_INSTALL_LIBDIR};${KELVO_ROOT_LIBDIR}")
  set(CMAKE_INSTALL_RPATH_USE_LINK_PATH ON)
endif()

# Texts are put together by a library that checks the formats when it is compiled; its headers
# suffice, so nothing of it remains to be linked or installed.
find_package(fmt 9 CONFIG QUIET)
if(NOT fmt_FOUND)
  message(FATAL_ERROR "kelvo needs fmt 9 or newer (Debian: libfmt-dev) and found none. Install it, "
    "or set fmt_DIR to the folder of its fmt-config.cmake.")
endif()

function(kelvo_configure_target target)
  set_target_properties(${target} PROPERTIES
    CXX_STANDARD 17 CXX_STANDARD_REQUIRED ON CXX_EXTENSIONS OFF
    POSITION_INDEPENDENT_CODE ON
    INSTALL_RPATH "${KELVO_RUN_PATH}")
  target_compile_features(${target} PUBLIC cxx_std_17)
  # Results are the same bits at every optimisation level: a multiplication and an addition are
  # never fused.
  target_compile_options(${target} PRIVATE -ffp-contract=off -Wall -Wextra -Wconversion -Wshadow
    $<$<BOOL:${KELVO_WARNINGS_AS_ERRORS}>:-Werror>)
  if(KELVO_SANITIZE)
    target_compile_options(${target} PUBLIC -fsanitize=${KELVO_SANITIZE} -fno-omit-frame-pointer
      -fno-sanitize-recover=all)
    target_link_options(${target} PUBLIC -fsanitize=${KELVO_SANITIZE})
  endif()
  if(KELVO_ROOT_LINK_OPTION)
    target_link_options(${target} PRIVATE ${KELVO_ROOT_LINK_OPTION})
  endif()
  target_include_directories(${target} SYSTEM PRIVATE ${ROOT_INCLUDE_DIRS})
  target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:fmt::fmt-header-only>)
  target_compile_definitions(${target} PRIVATE FMT_ENFORCE_COMPILE_STRING)
endfunction()

# For programs whose own code takes no time: the libraries do the work, and these compile in half the
# time. Results are the same bits at every optimisation level.
function(kelvo_compile_quickly target)
  target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:-O1>)
  if(KELVO_SANITIZE)
    target_compile_options(${target} PRIVATE -O0)
  endif()
endfunction()

# A Python wheel cannot hold links, so the names of its libraries are without version.
function(kelvo_version_library target)
  if(NOT SKBUILD)
    set_target_properties(${target} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 0)
  endif()
endfunction()

# ROOT's material record where its geometry package is there, else ours of the same interface.
function(kelvo_use_material_record target)
  if(KELVO_ROOT_HAS_GEOMETRY)
    message(STATUS "kelvo: TGeoMaterial from ROOT's geometry package")
    target_link_libraries(${target} PUBLIC ROOT::Geom)
  else()
    message(STATUS "kelvo: ROOT has no geometry package; TGeoMaterial from geo/material")
    target_include_directories(${target} PUBLIC
      $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/geo/material>
      $<INSTALL_INTERFACE:${KELVO_HEADER_FOLDER}/geo/material>)
  endif()
endfunction()

# toml++, for the sources only: its headers suffice, so nothing of it remains to be linked or
# installed.
function(kelvo_use_toml target)
  find_path(KELVO_TOML_INCLUDE toml++/toml.h)
  if(NOT KELVO_TOML_INCLUDE)
    message(FATAL_ERROR "kelvo needs toml++ 3 (Debian: libtomlplusplus-dev) and found no "
      "toml++/toml.h. Install it, or set KELVO_TOML_INCLUDE to the folder that holds toml++.")
  endif()
  target_include_directories(${target} SYSTEM PRIVATE ${KELVO_TOML_INCLUDE})
endfunction()
