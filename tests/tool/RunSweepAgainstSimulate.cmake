# Runs one cell as `mht sweep` and as `mht simulate` and compares their JSON: the same fill
# at the first failure, optimum, moves and request counts. Checks that the chart is an SVG
# with a line for the cell's series, and that both name their slowest request.
#   cmake -DMHT=<mht> -DWORK_DIR=<dir> -P RunSweepAgainstSimulate.cmake
file(MAKE_DIRECTORY "${WORK_DIR}")
execute_process(COMMAND ${MHT} sweep --table single:2x64x4 --steps 3 --search breadth-first --seeds 5 --churn 300
                        --jobs 2 --no-progress --json ${WORK_DIR}/sweep.json --svg ${WORK_DIR}/sweep.svg
                OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "mht sweep exited with ${rc}:\n${err}")
endif()
if(NOT out MATCHES "\nsingle 2x64x4      3  breadth-first  [0-9.]+ % \\(")
  message(FATAL_ERROR "mht sweep printed no row for its cell:\n${out}")
endif()
execute_process(COMMAND ${MHT} simulate --table single --banks 2 --buckets 64 --slots 4 --steps 3
                        --move-search breadth-first --seed 5 --churn 300 --no-progress --json ${WORK_DIR}/simulate.json
                OUTPUT_QUIET ERROR_VARIABLE err RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "mht simulate exited with ${rc}:\n${err}")
endif()
file(READ "${WORK_DIR}/sweep.json" sweep)
file(READ "${WORK_DIR}/simulate.json" simulate)

function(expect_same what)
  cmake_parse_arguments(PARSE_ARGV 1 path "" "" "SWEEP;SIMULATE")
  string(JSON a GET "${sweep}" rows 0 runs 0 ${path_SWEEP})
  string(JSON b GET "${simulate}" ${path_SIMULATE})
  if(NOT a STREQUAL b)
    message(FATAL_ERROR "${what}: mht sweep has ${a}, mht simulate ${b}")
  endif()
endfunction()
expect_same("fill at the first failure" SWEEP firstFailure fillRatio SIMULATE firstFailure fillRatio)
expect_same("first failure request" SWEEP firstFailure request SIMULATE firstFailure request)
expect_same("optimum" SWEEP optimum fillRatio SIMULATE optimum fillRatio)
expect_same("moves per placement" SWEEP movesPerPlacement SIMULATE movesPerPlacement mean)
expect_same("churn placements" SWEEP churn placed SIMULATE churn placed)

# Both name their slowest request; its time is the machine's, so only its form is held.
foreach(doc sweep simulate)
  if(doc STREQUAL "sweep")
    string(JSON slowest ERROR_VARIABLE missing GET "${sweep}" rows 0 runs 0 slowestRequest)
  else()
    string(JSON slowest ERROR_VARIABLE missing GET "${simulate}" slowestRequest)
  endif()
  if(missing)
    message(FATAL_ERROR "mht ${doc} --json has no slowestRequest: ${missing}")
  endif()
  string(JSON micros GET "${slowest}" microseconds)
  string(JSON phase GET "${slowest}" phase)
  string(JSON key GET "${slowest}" key)
  if(NOT micros MATCHES "^[0-9.e+-]+$" OR NOT phase MATCHES "^(fill|churn)$" OR NOT key MATCHES "^[0-9]+ [0-9]+ [0-9]+ singleWide$")
    message(FATAL_ERROR "mht ${doc} --json: a malformed slowestRequest ${slowest}")
  endif()
endforeach()

file(READ "${WORK_DIR}/sweep.svg" svg)
if(NOT svg MATCHES "^<svg " OR NOT svg MATCHES "<polyline " OR NOT svg MATCHES "</svg>\n$")
  message(FATAL_ERROR "mht sweep --svg wrote no chart:\n${svg}")
endif()
