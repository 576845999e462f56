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
