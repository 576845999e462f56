# Makes the Debian packages of a build, unpacks them into a scratch root (nothing is
# installed on the system), and uses them there: the client project with find_package,
# the client compiled with pkg-config's flags, the packaged mht and its man page, and the
# dev package's documents. Lintian checks the packages first: no error, and no warning
# beyond the accepted ones.
#   cmake -DBUILD_DIR=<build> -DSOURCE_DIR=<tests/package> -DWORK_DIR=<scratch>
#         -DCPACK=<cpack> -DCXX=<compiler> -DPKG_CONFIG=<pkg-config>
#         -DLINTIAN=<lintian> -DLINTIAN_ACCEPTED=<packaging/lintian-accepted> [-DWITH_PYTHON=ON]
#         -P RunDebPackageTest.cmake
# (WITH_PYTHON: the build makes the Python module, and so its package; RunPythonPackageTest
# runs the module's tests in it.)
file(REMOVE_RECURSE "${WORK_DIR}")
set(root "${WORK_DIR}/root")

include("${CMAKE_CURRENT_LIST_DIR}/Run.cmake")

function(deb_field deb field var)
  execute_process(COMMAND dpkg-deb -f "${deb}" ${field} OUTPUT_VARIABLE value OUTPUT_STRIP_TRAILING_WHITESPACE
    RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "dpkg-deb -f ${deb} ${field} failed (${rc})")
  endif()
  set(${var} "${value}" PARENT_SCOPE)
endfunction()

function(expect_match what value regex)
  if(NOT value MATCHES "${regex}")
    message(FATAL_ERROR "${what}: '${value}' does not match '${regex}'")
  endif()
endfunction()

run(${CPACK} -G DEB --config "${BUILD_DIR}/CPackConfig.cmake" -B "${WORK_DIR}/packages")
file(GLOB debs "${WORK_DIR}/packages/*.deb")
list(LENGTH debs count)
set(expected 3)
if(WITH_PYTHON)
  set(expected 4)
endif()
if(NOT count EQUAL expected)
  message(FATAL_ERROR "expected ${expected} packages, got: ${debs}")
endif()

run(${LINTIAN} --fail-on error,warning --suppress-tags-from-file "${LINTIAN_ACCEPTED}" ${debs})

# The dependencies between the packages, and on the system's libraries.
foreach(deb IN LISTS debs)
  deb_field("${deb}" Package package)
  deb_field("${deb}" Version version)
  deb_field("${deb}" Depends depends)
  message(STATUS "${package} ${version}: Depends: ${depends}")
  if(package MATCHES "^libmultihashtable[0-9]+$")
    set(runtime "${package}")
    expect_match("${package} Depends" "${depends}" "libstdc\\+\\+6")
  elseif(package STREQUAL "libmultihashtable-dev")
    set(dev_depends "${depends}")
    set(dev_version "${version}")
  elseif(package STREQUAL "multihashtable-tools")
    set(tools_depends "${depends}")
    expect_match("${package} Depends" "${depends}" "libedit2")
  elseif(package STREQUAL "python3-multihashtable" AND WITH_PYTHON)
    set(python_depends "${depends}")
    expect_match("${package} Depends" "${depends}" "python3 \\(>= 3\\.[0-9]+~\\), python3 \\(<< 3\\.[0-9]+\\)")
  else()
    message(FATAL_ERROR "unexpected package ${package} in ${deb}")
  endif()
  run(dpkg-deb -x "${deb}" "${root}")
endforeach()
string(REPLACE "+" "\\+" runtime_re "${runtime}")
expect_match("libmultihashtable-dev Depends" "${dev_depends}" "${runtime_re} \\(= ${dev_version}\\)")
expect_match("multihashtable-tools Depends" "${tools_depends}" "${runtime_re}")
if(WITH_PYTHON)
  expect_match("python3-multihashtable Depends" "${python_depends}" "${runtime_re} \\(= ${dev_version}\\)")
endif()

set(libdir "${root}/usr/lib")
if(NOT EXISTS "${libdir}/pkgconfig/multihashtable.pc")
  file(GLOB_RECURSE pcfile "${root}/usr/lib/*/multihashtable.pc")
  get_filename_component(pcdir "${pcfile}" DIRECTORY)
  get_filename_component(libdir "${pcdir}" DIRECTORY)
endif()
set(ldpath "LD_LIBRARY_PATH=${libdir}")

# find_package through CMAKE_PREFIX_PATH.
run(${CMAKE_COMMAND} -S "${SOURCE_DIR}" -B "${WORK_DIR}/client" -G Ninja "-DCMAKE_PREFIX_PATH=${root}/usr")
run(${CMAKE_COMMAND} --build "${WORK_DIR}/client")
run(${CMAKE_COMMAND} -E env "${ldpath}" "${WORK_DIR}/client/client")

# pkg-config through PKG_CONFIG_PATH.
include("${CMAKE_CURRENT_LIST_DIR}/PkgConfigClient.cmake")
mht_build_client_with_pkg_config("${libdir}/pkgconfig" "${SOURCE_DIR}/client.cpp" "${WORK_DIR}/pkg-config-client")
run(${CMAKE_COMMAND} -E env "${ldpath}" "${WORK_DIR}/pkg-config-client")

# The packaged tool.
execute_process(COMMAND ${CMAKE_COMMAND} -E env "${ldpath}" "${root}/usr/bin/mht" --version
  OUTPUT_VARIABLE version RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "mht --version failed (${rc})")
endif()
message(STATUS "mht --version: ${version}")
expect_match("mht --version" "${version}" "^mht ${dev_version}\nlibrary MultiHashTable ${dev_version}\ncommit ")

# The tool's man page and bash completion.
foreach(file share/man/man1/mht.1.gz share/bash-completion/completions/mht)
  if(NOT EXISTS "${root}/usr/${file}")
    message(FATAL_ERROR "multihashtable-tools lacks /usr/${file}")
  endif()
endforeach()

# The documents of the dev package, where the man page says they are, and readable.
set(docdir "${root}/usr/share/doc/libmultihashtable-dev")
execute_process(COMMAND gzip -dc "${root}/usr/share/man/man1/mht.1.gz" OUTPUT_VARIABLE page RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "cannot read the man page of mht (${rc})")
endif()
foreach(doc hardware requests architecture statistics restart)
  if(NOT EXISTS "${docdir}/${doc}.md.gz")
    message(FATAL_ERROR "libmultihashtable-dev lacks /usr/share/doc/libmultihashtable-dev/${doc}.md.gz")
  endif()
  execute_process(COMMAND gzip -dc "${docdir}/${doc}.md.gz" OUTPUT_VARIABLE text RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0 OR NOT text MATCHES "^# ")
    message(FATAL_ERROR "/usr/share/doc/libmultihashtable-dev/${doc}.md.gz is not a gzipped document")
  endif()
  string(FIND "${page}" "/usr/share/doc/libmultihashtable\\-dev/${doc}.md.gz" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "the man page of mht does not name /usr/share/doc/libmultihashtable-dev/${doc}.md.gz")
  endif()
endforeach()
