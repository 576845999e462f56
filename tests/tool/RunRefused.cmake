# Runs `mht <args>` in DIR, which must refuse what it was given: exit code 1, nothing on
# standard output, and standard error exactly as the EXPECTED file.
#   cmake -DMHT=<mht> -DDIR=<dir> -DARGS=<a;b;c> -DEXPECTED=<file> -P RunRefused.cmake
execute_process(COMMAND ${MHT} ${ARGS} WORKING_DIRECTORY ${DIR} OUTPUT_VARIABLE out ERROR_VARIABLE err
                RESULT_VARIABLE rc)
if(NOT rc EQUAL 1)
  message(FATAL_ERROR "mht ${ARGS} exited with ${rc}, not 1:\n${err}")
endif()
if(NOT out STREQUAL "")
  message(FATAL_ERROR "mht ${ARGS} printed on standard output:\n${out}")
endif()
file(READ "${EXPECTED}" expected)
if(NOT err STREQUAL expected)
  message(FATAL_ERROR "mht ${ARGS}: standard error differs from ${EXPECTED}\n--- got ---\n${err}--- expected ---\n${expected}")
endif()
