# Installs the build into a scratch prefix, then configures, builds and runs the client
# project against the installed package.
#   cmake -DBUILD_DIR=<build> -DSOURCE_DIR=<tests/package> -DWORK_DIR=<scratch> -P RunPackageTest.cmake
file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${prefix}")
run(${CMAKE_COMMAND} -S "${SOURCE_DIR}" -B "${WORK_DIR}/client" -G Ninja "-DCMAKE_PREFIX_PATH=${prefix}")
run(${CMAKE_COMMAND} --build "${WORK_DIR}/client")
run("${WORK_DIR}/client/client")
