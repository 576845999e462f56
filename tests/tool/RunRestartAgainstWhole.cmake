# Replays a whole script and the second half of it that restarts from a snapshot of the
# first, and requires the same results, records and bucket states at the end. The counters
# differ by design (a restore counts each key it takes over as one insertion and makes no
# move), and a bucket whose keys have all left may stay in the dump with state 0x0: both are
# left out of the comparison.
#   cmake -DMHT=<mht> -DWHOLE=<script> -DSECOND=<script> -P RunRestartAgainstWhole.cmake
function(placement_of script result)
  execute_process(COMMAND ${MHT} replay ${script} OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "mht replay ${script} exited with ${rc}:\n${err}")
  endif()
  string(REGEX REPLACE "counters [^\n]*\n" "" out "${out}")
  string(REGEX REPLACE "bucket [0-9]+ [0-9]+ 0x0\n" "" out "${out}")
  set(${result} "${out}" PARENT_SCOPE)
endfunction()
placement_of(${WHOLE} whole)
placement_of(${SECOND} restarted)
if(NOT whole STREQUAL restarted)
  message(FATAL_ERROR "${SECOND} ends otherwise than ${WHOLE}\n--- restarted ---\n${restarted}--- whole ---\n${whole}")
endif()
if(whole STREQUAL "")
  message(FATAL_ERROR "${WHOLE} printed no placement")
endif()
