# Runs `mht <args>` and compares its standard output with an expected file.
#   cmake -DMHT=<mht> -DARGS=<a;b;c> -DEXPECTED=<file> -P RunGolden.cmake
execute_process(COMMAND ${MHT} ${ARGS} OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "mht ${ARGS} exited with ${rc}:\n${err}")
endif()
file(READ "${EXPECTED}" expected)
if(NOT out STREQUAL expected)
  message(FATAL_ERROR "mht ${ARGS}: output differs from ${EXPECTED}\n--- got ---\n${out}--- expected ---\n${expected}")
endif()
