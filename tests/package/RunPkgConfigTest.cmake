# Installs the build into a scratch prefix, then compiles the client with a plain compiler
# command whose flags come from pkg-config alone, and runs it.
#   cmake -DBUILD_DIR=<build> -DSOURCE_DIR=<tests/package> -DWORK_DIR=<scratch>
#         -DCXX=<compiler> -DPKG_CONFIG=<pkg-config> -P RunPkgConfigTest.cmake
file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")

include("${CMAKE_CURRENT_LIST_DIR}/Run.cmake")

run(${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${prefix}")
file(GLOB_RECURSE pcfile "${prefix}/*/multihashtable.pc")
if(NOT pcfile)
  message(FATAL_ERROR "no multihashtable.pc under ${prefix}")
endif()
get_filename_component(pcdir "${pcfile}" DIRECTORY)
get_filename_component(libdir "${pcdir}" DIRECTORY)

include("${CMAKE_CURRENT_LIST_DIR}/PkgConfigClient.cmake")
mht_build_client_with_pkg_config("${pcdir}" "${SOURCE_DIR}/client.cpp" "${WORK_DIR}/client")
run(${CMAKE_COMMAND} -E env "LD_LIBRARY_PATH=${libdir}" "${WORK_DIR}/client")

# An agent built below C++20 is told so by name, before any template error.
execute_process(COMMAND ${CMAKE_COMMAND} -E env "PKG_CONFIG_PATH=${pcdir}" "PKG_CONFIG_LIBDIR=${pcdir}"
  ${PKG_CONFIG} --cflags multihashtable OUTPUT_VARIABLE cflags OUTPUT_STRIP_TRAILING_WHITESPACE)
separate_arguments(cflags UNIX_COMMAND "${cflags}")
execute_process(COMMAND ${CXX} -std=c++17 -fsyntax-only -I${SOURCE_DIR}/agent "${SOURCE_DIR}/client.cpp" ${cflags}
  RESULT_VARIABLE rc ERROR_VARIABLE errors)
if(rc EQUAL 0 OR NOT errors MATCHES "MultiHashTable needs C\\+\\+20: compile the agent with -std=c\\+\\+20 or later")
  message(FATAL_ERROR "a C++17 build of the client was not refused by name (${rc}):\n${errors}")
endif()
