# run(<command> <args>...): runs a step of a package test; a step that fails ends the test
# with its exit status and its command line.
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}")
  endif()
endfunction()
