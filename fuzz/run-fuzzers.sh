#!/usr/bin/env bash
# Runs libFuzzer harnesses of a fuzz build (the fuzz preset), each for SECONDS.
#
#   fuzz/run-fuzzers.sh BUILD_DIR SECONDS [HARNESS...]     (default: every harness)
#
# Each harness starts from the committed corpus, fuzz/corpus/<harness>, plus what earlier
# runs of this build found, BUILD_DIR/fuzz-corpus/<harness>, where new inputs go; the
# committed corpus is never written. A crash, a leak or a timeout leaves its input in
# BUILD_DIR/fuzz-artifacts/<harness>/ and fails the run, after every harness has had its
# turn. A harness's full output is in BUILD_DIR/fuzz-artifacts/<harness>/log.txt.
set -uo pipefail
cd "$(dirname "$0")/.."

if [ $# -lt 2 ]; then
  echo "usage: $0 BUILD_DIR SECONDS [HARNESS...]" >&2
  exit 2
fi
build=$1
seconds=$2
shift 2
harnesses=("$@")
[ ${#harnesses[@]} -eq 0 ] && harnesses=(operations text replay shell)

export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"

failed=()
for h in "${harnesses[@]}"; do
  binary="$build/fuzz/fuzz_$h"
  if [ ! -x "$binary" ]; then
    echo "fuzz: $binary is missing; build the fuzz preset first" >&2
    failed+=("$h")
    continue
  fi
  corpus="$build/fuzz-corpus/$h"
  artifacts="$build/fuzz-artifacts/$h"
  mkdir -p "$corpus" "$artifacts"
  # One operations input may search for room in a full table at a step budget of 8, whose
  # cost grows as the slots per bucket to the power of the budget: under the sanitizers that
  # takes seconds where a release build takes a tenth of one.
  timeout=10
  [ "$h" = operations ] && timeout=60
  options=(-max_total_time="$seconds" -timeout="$timeout" -rss_limit_mb=2048 -max_len=4096 -print_final_stats=1
           -artifact_prefix="$artifacts/")
  [ -f "fuzz/$h.dict" ] && options+=(-dict="fuzz/$h.dict")
  echo "fuzz: $h for ${seconds}s"
  touch "$artifacts/.started"
  "$binary" "${options[@]}" "$corpus" "fuzz/corpus/$h" >"$artifacts/log.txt" 2>&1
  status=$?
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$artifacts/log.txt" | tail -1)
  added=$(sed -n 's/^stat::new_units_added: *//p' "$artifacts/log.txt" | tail -1)
  cov=$(grep -o 'cov: [0-9]*' "$artifacts/log.txt" | tail -1)
  echo "fuzz: $h: ${runs:-?} executions, ${added:-?} new inputs, ${cov:-cov: ?}, exit $status"
  if [ $status -eq 72 ]; then
    # libFuzzer's exit code when it is interrupted (SIGINT, SIGTERM) rather than finding anything.
    echo "fuzz: $h was interrupted before its time was up" >&2
    failed+=("$h")
  elif [ $status -ne 0 ]; then
    failed+=("$h")
    grep -E -A30 'ERROR: libFuzzer|ERROR: AddressSanitizer|ERROR: LeakSanitizer|runtime error|Assertion|finding:|audit after' \
      "$artifacts/log.txt" | head -60 >&2
    find "$artifacts" -type f -newer "$artifacts/.started" ! -name log.txt | sed "s|^|fuzz: kept |" >&2
  fi
done

if [ ${#failed[@]} -ne 0 ]; then
  echo "fuzz: failed: ${failed[*]} (inputs kept under $build/fuzz-artifacts/)" >&2
  exit 1
fi
