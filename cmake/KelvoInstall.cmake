# Install rules and the CMake package, so that find_package(kelvo) gives kelvo::kelvo.
include(CMakePackageConfigHelpers)
set(KELVO_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/kelvo)

if(NOT KELVO_ROOT_HAS_GEOMETRY)
  set(without_geometry PATTERN "TGeoDetector.h" EXCLUDE)
endif()
if(KELVO_BUILD_PICTURES)
  set(pictures kelvo_pictures)
endif()
install(TARGETS kelvo kelvo_io kelvo_run kelvo_frame kelvo_python ${pictures} EXPORT kelvoTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
if(TARGET kelvo_drawn)
  install(TARGETS kelvo_drawn LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
foreach(folder func matter geo util fit track sim io run draw python)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${folder} DESTINATION ${KELVO_HEADER_FOLDER}
          FILES_MATCHING PATTERN "*.h" PATTERN "material" EXCLUDE PATTERN "kelvo" EXCLUDE
          PATTERN "TomlTable.h" EXCLUDE PATTERN "PlaneDetectorReader.h" EXCLUDE
          PATTERN "KinkFilter.h" EXCLUDE PATTERN "KinkState.h" EXCLUDE
          PATTERN "MeanSlab.h" EXCLUDE PATTERN "LaneSmoother.h" EXCLUDE PATTERN "Lanes.h" EXCLUDE PATTERN "LineState.h" EXCLUDE
          PATTERN "PublishedTables.h" EXCLUDE
          PATTERN "Constants.h" EXCLUDE PATTERN "Interpolation.h" EXCLUDE
          PATTERN "Quadrature.h" EXCLUDE PATTERN "ShellTables.h" EXCLUDE
          PATTERN "DrawnSvg.h" EXCLUDE
          ${without_geometry})
endforeach()
if(NOT KELVO_ROOT_HAS_GEOMETRY)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/geo/material DESTINATION ${KELVO_HEADER_FOLDER}/geo)
endif()

install(DIRECTORY ${PROJECT_SOURCE_DIR}/detectors DESTINATION ${CMAKE_INSTALL_DATADIR}/kelvo)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/CITATION.cff DESTINATION ${CMAKE_INSTALL_DOCDIR})

install(EXPORT kelvoTargets NAMESPACE kelvo:: DESTINATION ${KELVO_CMAKE_DIR})
configure_package_config_file(cmake/kelvoConfig.cmake.in ${PROJECT_BINARY_DIR}/kelvoConfig.cmake
  INSTALL_DESTINATION ${KELVO_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kelvoConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kelvoConfig.cmake ${PROJECT_BINARY_DIR}/kelvoConfigVersion.cmake
              cmake/KelvoRoot.cmake
        DESTINATION ${KELVO_CMAKE_DIR})
