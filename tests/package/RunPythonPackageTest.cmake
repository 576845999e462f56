# Makes the Debian packages of a build, unpacks the runtime, tools and Python packages into
# a scratch root (nothing is installed on the machine), and runs the module's unit tests
# against the module and libraries of that root: PYTHONPATH names only the root's
# dist-packages, LD_LIBRARY_PATH only its library directory, MHT its mht. The test first
# proves that the interpreter loads the module and the library from the root, not from
# the build tree.
#   cmake -DBUILD_DIR=<build> -DTESTS_DIR=<python/tests> -DWORK_DIR=<scratch> -DCPACK=<cpack>
#         -DPYTHON=<python3> -P RunPythonPackageTest.cmake
file(REMOVE_RECURSE "${WORK_DIR}")
set(root "${WORK_DIR}/root")

include("${CMAKE_CURRENT_LIST_DIR}/Run.cmake")

run(${CPACK} -G DEB --config "${BUILD_DIR}/CPackConfig.cmake" -B "${WORK_DIR}/packages")
foreach(package libmultihashtable[0-9]* multihashtable-tools python3-multihashtable)
  file(GLOB deb "${WORK_DIR}/packages/${package}_*.deb")
  list(LENGTH deb count)
  if(NOT count EQUAL 1)
    message(FATAL_ERROR "expected one package ${package}, got: '${deb}'")
  endif()
  run(dpkg-deb -x "${deb}" "${root}")
endforeach()

set(sitedir "${root}/usr/lib/python3/dist-packages")
file(GLOB module "${sitedir}/multihashtable.*.so")
if(NOT module)
  message(FATAL_ERROR "python3-multihashtable lacks /usr/lib/python3/dist-packages/multihashtable.*.so")
endif()
file(GLOB_RECURSE library "${root}/usr/lib/*/libMultiHashTable.so.1")
get_filename_component(libdir "${library}" DIRECTORY)
set(env ${CMAKE_COMMAND} -E env --unset=PYTHONHOME "PYTHONPATH=${sitedir}" "LD_LIBRARY_PATH=${libdir}"
        "MHT=${root}/usr/bin/mht")

# Where the interpreter finds the module and the dynamic linker the library. Both run in the
# scratch directory: the interpreter looks in its working directory first, and ctest's is
# the build tree's python directory, which holds the module as built.
execute_process(COMMAND ${env} ${PYTHON} -c [[
import multihashtable
print(multihashtable.__file__)
print(next(line.split()[-1] for line in open("/proc/self/maps") if "libMultiHashTable.so" in line))
]] WORKING_DIRECTORY "${WORK_DIR}" OUTPUT_VARIABLE loaded OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "the packaged module does not import (${rc})")
endif()
message(STATUS "loaded:\n${loaded}")
string(REPLACE "\n" ";" loaded "${loaded}")
list(GET loaded 0 module_file)
list(GET loaded 1 library_file)
file(REAL_PATH "${module_file}" module_file)
file(REAL_PATH "${library_file}" library_file)
file(REAL_PATH "${root}" real_root)
foreach(file IN ITEMS "${module_file}" "${library_file}")
  string(FIND "${file}" "${real_root}/" at)
  if(NOT at EQUAL 0)
    message(FATAL_ERROR "${file} is not the packaged one under ${real_root}")
  endif()
endforeach()

execute_process(COMMAND ${env} ${PYTHON} -m unittest discover -v -s "${TESTS_DIR}" -p "test_*.py"
  WORKING_DIRECTORY "${WORK_DIR}" RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "the module's unit tests fail against the packaged module (${rc})")
endif()
