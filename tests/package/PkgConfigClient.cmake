# mht_build_client_with_pkg_config(<pkg-config dir> <source> <output>): compiles and links
# one source file with `${CXX} <source> $(pkg-config --cflags --libs multihashtable)`,
# with PKG_CONFIG_PATH set to the directory alone so that nothing else is found.
function(mht_build_client_with_pkg_config pcdir source output)
  set(env ${CMAKE_COMMAND} -E env "PKG_CONFIG_PATH=${pcdir}" "PKG_CONFIG_LIBDIR=${pcdir}")
  execute_process(COMMAND ${env} ${PKG_CONFIG} --print-errors --validate multihashtable RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "pkg-config --validate multihashtable failed (${rc})")
  endif()
  execute_process(COMMAND ${env} ${PKG_CONFIG} --print-errors --cflags --libs multihashtable
    OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "pkg-config --cflags --libs multihashtable failed (${rc})")
  endif()
  message(STATUS "pkg-config --cflags --libs multihashtable: ${flags}")
  separate_arguments(flags UNIX_COMMAND "${flags}")
  execute_process(COMMAND ${CXX} "${source}" ${flags} -o "${output}" RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${CXX} ${source} ${flags} -o ${output}")
  endif()
endfunction()
