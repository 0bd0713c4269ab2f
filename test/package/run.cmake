# Builds the outside program against an install tree (MODE find_package) or with the sources as a
# subdirectory (MODE add_subdirectory), and runs it.
function(run)
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${SOURCE_DIR} RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "failed: ${ARGN}\n${output}")
  endif()
endfunction()

set(work ${BUILD_DIR}/package/${MODE})
file(REMOVE_RECURSE ${work})
if(MODE STREQUAL find_package)
  run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${work}/prefix)
  set(where -DCMAKE_PREFIX_PATH=${work}/prefix)
else()
  set(where -DKELVO_SOURCE_DIR=${SOURCE_DIR})
endif()
run(${CMAKE_COMMAND} -G Ninja -S ${SOURCE_DIR}/test/package/${MODE} -B ${work}/build ${where}
    -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build ${work}/build)
run(${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${work}/build/outside)
