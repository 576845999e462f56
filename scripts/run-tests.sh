#!/usr/bin/env bash
# Runs CTest's test preset $1 (default: release) and prints it short: no line for a test that
# starts or passes, a count every 100 tests, each test that fails or is skipped on one line
# with its output in full after it, then CTest's summary. Exits with CTest's status.
set -uo pipefail

preset="${1:-release}"
ctest --preset "$preset" 2>&1 | awk '
  /^ *Start +[0-9]+: / { next }
  /^ *[0-9]+\/[0-9]+ +Test +#[0-9]+: / {
    split($1, done, "/")
    line = $0
    gsub(/ \.\.+ */, " ... ", line)
    gsub(/  +/, " ", line)
    sub(/^ +/, "", line)
    if (line !~ / Passed [0-9.]+ sec$/) print line
    else if (done[1] % 100 == 0) printf "%d of %d tests done\n", done[1], done[2]
    fflush()
    next
  }
  { print; fflush() }
'
