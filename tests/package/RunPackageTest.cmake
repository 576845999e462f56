# Installs the build into a scratch prefix, then configures, builds and runs the client
# project against the installed package.
#   cmake -DBUILD_DIR=<build> -DSOURCE_DIR=<tests/package> -DWORK_DIR=<scratch> -P RunPackageTest.cmake
file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")

include("${CMAKE_CURRENT_LIST_DIR}/Run.cmake")

run(${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${prefix}")
# The documents for the agent's developers, in the dev package's documentation directory.
foreach(doc hardware requests architecture statistics restart)
  if(NOT EXISTS "${prefix}/share/doc/libmultihashtable-dev/${doc}.md.gz")
    message(FATAL_ERROR "the install lacks share/doc/libmultihashtable-dev/${doc}.md.gz")
  endif()
endforeach()
# Every header under one project-named directory: the include path an agent gains holds
# nothing else, and the library's internal statements are not installed.
file(GLOB top RELATIVE "${prefix}/include" "${prefix}/include/*")
if(NOT top STREQUAL "MultiHashTable")
  message(FATAL_ERROR "include/ holds '${top}', expected only 'MultiHashTable'")
endif()
foreach(header MultiHashTable.h singlewidth/SingleWidthTable.h multiwidth/MultiEntryTypeHashTable.h fwk/Entity.h)
  if(NOT EXISTS "${prefix}/include/MultiHashTable/${header}")
    message(FATAL_ERROR "the install lacks include/MultiHashTable/${header}")
  endif()
endforeach()
if(EXISTS "${prefix}/include/MultiHashTable/internal")
  message(FATAL_ERROR "the install holds the library's internal headers")
endif()
run(${CMAKE_COMMAND} -S "${SOURCE_DIR}" -B "${WORK_DIR}/client" -G Ninja "-DCMAKE_PREFIX_PATH=${prefix}")
run(${CMAKE_COMMAND} --build "${WORK_DIR}/client")
run("${WORK_DIR}/client/client")
