#!/usr/bin/env bash
# Checks mht's bash completion: the subcommands, each subcommand's options (every option
# that the subcommand's --help lists, and no other), and the values of the enumerated ones.
#   completion_test.sh <bash_completion framework> <mht completion> <mht>
set -uo pipefail
framework=$1 completion=$2 mht=$3
# shellcheck disable=SC1090
source "$framework"
# shellcheck disable=SC1090
source "$completion"
# Outside a real completion there are no options to set for the reply.
compopt() { :; }

failures=0

# Completes the last word of the command line given, as if Tab were pressed after it.
complete_line() {
  COMP_LINE="$*"
  read -r -a COMP_WORDS <<<"$COMP_LINE"
  [[ $COMP_LINE == *" " ]] && COMP_WORDS+=("")
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  COMP_POINT=${#COMP_LINE}
  COMPREPLY=()
  _mht mht "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
  printf '%s\n' "${COMPREPLY[@]}" | sort | tr '\n' ' ' | sed 's/ $//'
}

expect() {
  local line=$1 expected=$2 got
  got=$(complete_line "$line")
  if [[ $got != "$expected" ]]; then
    echo "FAIL: '$line' completes to '$got', expected '$expected'"
    failures=$((failures + 1))
  fi
}

options_of() {
  "$mht" "$@" --help | grep -oE '^  (-h,)?--[a-z0-9-]+' | sed -E 's/^  (-h,)?//' | sort | tr '\n' ' ' | sed 's/ $//'
}

expect "mht " "replay shell simulate sweep"
expect "mht s" "shell simulate sweep"
expect "mht sw" "sweep"
expect "mht sweep --table m" "multi multi:4x4096x4"
expect "mht sweep --move-search b" "breadth-first breadthFirst"
expect "mht sweep --search d" "depth-first depth-first,breadth-first depthFirst"
expect "mht simulate --move-search b" "breadth-first breadthFirst"
expect "mht sweep --jo" "--jobs"
expect "mht --v" "--version"
expect "mht simulate --table " "multi single"
expect "mht simulate --keys i" "ipv4"
expect "mht simulate --bank-hash 1:hashCrc16" "1:hashCrc16Lower 1:hashCrc16Upper"
expect "mht simulate --table multi --no" "--no-progress"
expect "mht replay --a" "--audit"
for command in simulate sweep replay shell; do
  expect "mht $command --" "$(options_of "$command")"
done

if ((failures)); then
  echo "$failures completion check(s) failed"
  exit 1
fi
echo "completion checks passed"
