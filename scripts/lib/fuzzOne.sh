#!/usr/bin/env bash
# A quarter of a minute of new inputs for one fuzz target, beside those of its corpus. Says how many there were, or what
# broke it.
# usage: fuzzOne.sh PROGRAM, in the tree's folder
set -euo pipefail

name=$(basename "$1" _fuzz)
log=$1.log
found=$(mktemp --directory)
if timeout 300 "$1" -max_total_time=15 -print_final_stats=1 -artifact_prefix="$found/" "$found" \
  "tests/fuzz/corpus/$name" >"$log" 2>&1; then
  printf '%-11s %s: nothing found in %s inputs\n' fuzz "$name" \
    "$(sed --quiet 's/^stat::number_of_executed_units: *//p' "$log")"
  rm -rf "$found"
else
  tail --lines 60 "$log"
  printf '%-11s %s FAILED; the input is in %s\n' fuzz "$name" "$found"
  exit 1
fi
