# Debian packages of the installed components, made by `cpack -G DEB` in a build directory:
#
#   libmultihashtable1       runtime: libMultiHashTable.so.1 and libmhtframework.so.1
#   libmultihashtable-dev    dev:     headers, .so links, CMake package, pkg-config files,
#                                     the documents hardware.md, requests.md, architecture.md,
#                                     statistics.md, restart.md
#   multihashtable-tools     tools:   mht, its man page and its bash completion
#   python3-multihashtable   python:  the Python module, in /usr/lib/python3/dist-packages
#                                     (when the build makes it: MHT_BUILD_PYTHON)
#
# The runtime package's name carries the SONAME version, so that a later incompatible
# library installs beside it. dpkg-shlibdeps derives the dependencies on system
# libraries; the packages among themselves depend on the runtime package of exactly the
# same version, as the headers and the tool are built against that very library.
set(MHT_PACKAGE_MAINTAINER "MultiHashTable developers <multihashtable@example.org>"
    CACHE STRING "Maintainer field of the Debian packages")

set(MHT_RUNTIME_PACKAGE libmultihashtable${PROJECT_VERSION_MAJOR})
set(MHT_DEV_PACKAGE libmultihashtable-dev)
set(MHT_TOOLS_PACKAGE multihashtable-tools)
set(MHT_PYTHON_PACKAGE python3-multihashtable)
set(MHT_PACKAGED_COMPONENTS runtime dev tools)
if(TARGET multihashtable)
  list(APPEND MHT_PACKAGED_COMPONENTS python)
endif()

# Every package carries its copyright notice and the changelog in /usr/share/doc/<package>.
set(MHT_CHANGELOG_GZ ${CMAKE_CURRENT_BINARY_DIR}/packaging/changelog.gz)
file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/packaging)
execute_process(COMMAND gzip -9nc ${CMAKE_CURRENT_SOURCE_DIR}/packaging/changelog
  OUTPUT_FILE ${MHT_CHANGELOG_GZ} RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "cannot compress packaging/changelog")
endif()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/packaging/changelog)
foreach(component IN LISTS MHT_PACKAGED_COMPONENTS)
  string(TOUPPER ${component} upper)
  install(FILES packaging/copyright ${MHT_CHANGELOG_GZ}
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${MHT_${upper}_PACKAGE} COMPONENT ${component})
endforeach()

# The documents for the agent's developers go with the headers, in the dev package's own
# documentation directory, compressed as Debian's policy asks of documents over 4 kB (the
# man page of mht names them there).
set(MHT_DEV_DOCS hardware requests architecture statistics restart)
set(MHT_DEV_DOCS_GZ "")
foreach(doc IN LISTS MHT_DEV_DOCS)
  set(gz ${CMAKE_CURRENT_BINARY_DIR}/packaging/${doc}.md.gz)
  execute_process(COMMAND gzip -9nc ${CMAKE_CURRENT_SOURCE_DIR}/docs/${doc}.md OUTPUT_FILE ${gz} RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "cannot compress docs/${doc}.md")
  endif()
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/docs/${doc}.md)
  list(APPEND MHT_DEV_DOCS_GZ ${gz})
endforeach()
install(FILES ${MHT_DEV_DOCS_GZ} DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${MHT_DEV_PACKAGE} COMPONENT dev)

set(CPACK_PACKAGE_NAME multihashtable)
set(CPACK_PACKAGE_VENDOR "MultiHashTable developers")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${MHT_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL ${MHT_PACKAGED_COMPONENTS})
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
set(CPACK_COMPONENT_PYTHON_DEPENDS runtime)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/packages)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${MHT_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# The descriptions below: the first line is the synopsis; CPack indents the rest.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
# The tool links the libraries of this very build; dpkg-shlibdeps finds them here and
# leaves them to the component dependency above.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
  ${CMAKE_CURRENT_BINARY_DIR}/MultiHashTable ${CMAKE_CURRENT_BINARY_DIR}/framework)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${MHT_RUNTIME_PACKAGE})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# A shlibs file lets packages built against these libraries depend on this version or a
# later one; the trigger refreshes the dynamic linker's cache after installation.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/packaging/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "hash-table placement library for switch agents
Places, moves and removes the entries of a switch chip's hash tables, whose
banks each offer a key one bucket of a few slots, with entries one, two or
four slots wide. A client writes requests into a collection and reads the
placements back from another one.
.
This package holds the shared libraries libMultiHashTable and libmhtframework.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${MHT_DEV_PACKAGE})
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DESCRIPTION "hash-table placement library for switch agents - development files
Places, moves and removes the entries of a switch chip's hash tables, whose
banks each offer a key one bucket of a few slots, with entries one, two or
four slots wide.
.
This package holds the C++20 headers, the CMake package (find_package
MultiHashTable), the pkg-config files multihashtable and mhtframework, and
the documents on the chip's hash tables, the requests and the architecture.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${MHT_TOOLS_PACKAGE})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "hash-table placement library for switch agents - the mht tool
Places, moves and removes the entries of a switch chip's hash tables, whose
banks each offer a key one bucket of a few slots, with entries one, two or
four slots wide.
.
This package holds mht, which simulates how full a table gets, replays
recorded requests and explores the library through a shell.")

# The module is an extension built for one Python 3 version (its file name carries the ABI
# tag, multihashtable.cpython-311-<triplet>.so): the package depends on that version of
# Debian's python3, as dh_python3 would write it.
if(TARGET multihashtable)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME ${MHT_PYTHON_PACKAGE})
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  math(EXPR MHT_PYTHON_NEXT_MINOR "${MHT_PYTHON_VERSION_MINOR} + 1")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= ${MHT_PYTHON_VERSION_MAJOR}.${MHT_PYTHON_VERSION_MINOR}~), \
python3 (<< ${MHT_PYTHON_VERSION_MAJOR}.${MHT_PYTHON_NEXT_MINOR})")
  set(CPACK_COMPONENT_PYTHON_DESCRIPTION "hash-table placement library for switch agents - Python 3 module
Places, moves and removes the entries of a switch chip's hash tables, whose
banks each offer a key one bucket of a few slots, with entries one, two or
four slots wide.
.
This package holds the module multihashtable: the requests and results,
both tables with the checks, resync, reconcile and audit that an agent
uses, callbacks on each result, traces, and mht's simulation.")
endif()

include(CPack)
