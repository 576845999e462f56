# Runs `mht <args>`, which writes a snapshot, and compares its standard output and the
# snapshot with expected files.
#   cmake -DMHT=<mht> -DARGS=<a;b;c> -DEXPECTED=<file> -DSNAPSHOT=<written file>
#         -DEXPECTED_SNAPSHOT=<file> -P RunSnapshot.cmake
file(REMOVE "${SNAPSHOT}")
execute_process(COMMAND ${MHT} ${ARGS} OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "mht ${ARGS} exited with ${rc}:\n${err}")
endif()
file(READ "${EXPECTED}" expected)
if(NOT out STREQUAL expected)
  message(FATAL_ERROR "mht ${ARGS}: output differs from ${EXPECTED}\n--- got ---\n${out}--- expected ---\n${expected}")
endif()
file(READ "${SNAPSHOT}" written)
file(READ "${EXPECTED_SNAPSHOT}" expectedSnapshot)
if(NOT written STREQUAL expectedSnapshot)
  message(FATAL_ERROR "mht ${ARGS}: snapshot differs from ${EXPECTED_SNAPSHOT}\n--- got ---\n${written}--- expected ---\n${expectedSnapshot}")
endif()
