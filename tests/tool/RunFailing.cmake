# Runs `mht <args> --json <KEEP>`, which must fail: a non-zero exit code, ERROR as the first
# line of standard error, nothing on standard output, and KEEP, written before the run, left
# as it was.
#   cmake -DMHT=<mht> -DARGS=<a;b;c> -DERROR=<line> -DKEEP=<file> -P RunFailing.cmake
set(before "written before the run\n")
file(WRITE "${KEEP}" "${before}")
execute_process(COMMAND ${MHT} ${ARGS} --json ${KEEP} OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE rc)
if(rc EQUAL 0)
  message(FATAL_ERROR "mht ${ARGS} succeeded; it should have failed with: ${ERROR}")
endif()
string(REGEX REPLACE "\n.*" "" first "${err}")
if(NOT first STREQUAL ERROR)
  message(FATAL_ERROR "mht ${ARGS} (exit code ${rc}) said:\n${first}\ninstead of:\n${ERROR}")
endif()
if(NOT out STREQUAL "")
  message(FATAL_ERROR "mht ${ARGS} printed on standard output:\n${out}")
endif()
file(READ "${KEEP}" after)
if(NOT after STREQUAL before)
  message(FATAL_ERROR "mht ${ARGS} changed ${KEEP}:\n${after}")
endif()
