#!/usr/bin/env bash
# Runs a test program under Wine: wineTest.sh PROGRAM.exe [ARGUMENT ...]. One that hangs or crashes is run once more.
#
# The thread pool of Wine 8 has three faults that Windows' has not. Of two, the tests' build of the platform stays clear
# (platform/windows/winePool.h); the program itself, which some tests start, goes without that. The third nobody can stay
# clear of: Wine takes a wait that is closed at the moment of its signal for one that is still there, runs its callback
# or reads what has been freed, and such moments are what some tests are about. A hang and a crash are all that this
# forgives, and one only: a test that fails has failed.
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
