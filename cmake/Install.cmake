# Installs the libraries, their headers, a CMake package and pkg-config files, so that a
# client project can
#   find_package(MultiHashTable REQUIRED)
#   target_link_libraries(agent PRIVATE MultiHashTable::MultiHashTable)
# or build with `pkg-config --cflags --libs multihashtable`.
#
# Every file belongs to one of three components, which the Debian packages follow:
#   runtime  the shared libraries (versioned names and SONAME links)
#   dev      headers, the unversioned .so links, the CMake package, the .pc files, and
#            the documents for the agent's developers (cmake/Packaging.cmake)
#   tools    the mht tool, its man page and its bash completion (tools/CMakeLists.txt)
include(CMakePackageConfigHelpers)

install(TARGETS framework MultiHashTable
  EXPORT MultiHashTableTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# One directory holds every header, the framework's under fwk/:
#   include/MultiHashTable/MultiHashTable.h, .../singlewidth/, .../multiwidth/, .../fwk/
# so an agent's include path gains nothing but include/, and no generic name (Bank.h) can
# meet one of its own. The library's own trace and assertion statements (internal/) stay
# out of the package.
install(DIRECTORY MultiHashTable/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/MultiHashTable COMPONENT dev
  FILES_MATCHING PATTERN "*.h" PATTERN "internal" EXCLUDE)
install(DIRECTORY framework/fwk DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/MultiHashTable COMPONENT dev
  FILES_MATCHING PATTERN "*.h")

set(MHT_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/MultiHashTable)
install(EXPORT MultiHashTableTargets NAMESPACE MultiHashTable:: DESTINATION ${MHT_CMAKE_DIR} COMPONENT dev)

configure_package_config_file(cmake/MultiHashTableConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/MultiHashTableConfig.cmake
  INSTALL_DESTINATION ${MHT_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/MultiHashTableConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/MultiHashTableConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/MultiHashTableConfigVersion.cmake
  DESTINATION ${MHT_CMAKE_DIR} COMPONENT dev)

# pkg-config: multihashtable requires mhtframework, as the library links the framework
# publicly. The files name their prefix relative to their own directory (${pcfiledir}),
# so one file serves an install prefix, an unpacked package and /usr alike.
set(MHT_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH MHT_PC_PREFIX_FROM_PCDIR /prefix/${MHT_PKGCONFIG_DIR} /prefix)
string(REGEX REPLACE "/$" "" MHT_PC_PREFIX_FROM_PCDIR "${MHT_PC_PREFIX_FROM_PCDIR}")
foreach(pc mhtframework multihashtable)
  configure_file(cmake/pkgconfig/${pc}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/pkgconfig/${pc}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/pkgconfig/${pc}.pc DESTINATION ${MHT_PKGCONFIG_DIR} COMPONENT dev)
endforeach()
