#!/usr/bin/env bash
# Runs a test program under Wine: wineTest.sh PROGRAM.exe [ARGUMENT ...]. One that hangs or crashes is run once more.
#
# The thread pool of Wine 8 has three faults that Windows' has not. It blocks for good when the members of a group are
# closed while its own thread lets go of a wait that was closed before (two of its locks, taken in both orders). It loses
# a signal: between two rounds its thread still waits for the handle of a wait that was closed, and takes the signal of
# the event that has been given the same handle. And it runs a callback of a wait that is stopped at the moment of its
# signal. Each takes a few microseconds of bad luck; with thousands of links that are made and ended by the tests, one
# run of a program in some hundreds meets it. A hang and a crash are all that this forgives, and one only: a test that
# fails has failed.
set -uo pipefail

wine=$(dirname "${BASH_SOURCE[0]}")/../wine
readonly gave_up=3 crashed=5  # It gives up on what hangs: itself, or a process that it has started.

"$wine" "$@"
code=$?
if ((code == gave_up || code == crashed)); then
  echo "$(basename "$1" .exe) hung or crashed (exit code $code): once more"
  WINEPREFIX=${WINEPREFIX:?} wineserver --kill
  exec "$wine" "$@"
fi
exit "$code"
