# Installs the libraries, their headers and a CMake package, so that a client project can
#   find_package(MultiHashTable REQUIRED)
#   target_link_libraries(agent PRIVATE MultiHashTable::MultiHashTable)
include(CMakePackageConfigHelpers)

install(TARGETS framework MultiHashTable
  EXPORT MultiHashTableTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(DIRECTORY framework/fwk DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(DIRECTORY MultiHashTable/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/MultiHashTable FILES_MATCHING PATTERN "*.h")

set(MHT_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/MultiHashTable)
install(EXPORT MultiHashTableTargets NAMESPACE MultiHashTable:: DESTINATION ${MHT_CMAKE_DIR})

configure_package_config_file(cmake/MultiHashTableConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/MultiHashTableConfig.cmake
  INSTALL_DESTINATION ${MHT_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/MultiHashTableConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/MultiHashTableConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/MultiHashTableConfigVersion.cmake
  DESTINATION ${MHT_CMAKE_DIR})
