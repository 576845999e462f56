# mht_build_client_with_pkg_config(<pkg-config dir> <source> <output>): compiles and links
# one source file with `${CXX} -std=c++20 -I<agent's headers> <source> $(pkg-config --cflags
# --libs multihashtable)`, with PKG_CONFIG_PATH set to the directory alone so that nothing
# else is found. The standard is the agent's choice: the .pc files do not set it.
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
  if(flags MATCHES "-std=")
    message(FATAL_ERROR "pkg-config's flags set the C++ standard: ${flags}")
  endif()
  separate_arguments(flags UNIX_COMMAND "${flags}")
  get_filename_component(agent_include "${source}" DIRECTORY)
  set(compile ${CXX} -std=c++20 -I${agent_include}/agent "${source}" ${flags} -o "${output}")
  execute_process(COMMAND ${compile} RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${compile}")
  endif()
endfunction()
