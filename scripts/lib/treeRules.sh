# The rules of the tree that no compiler knows. Each prints what offends it, and fails then. Run from the tree's root.
# shellcheck shell=bash

# Prints the lines that git grep finds, under a heading; fails when there are any, or git cannot look.
forbid() {
  local heading=$1 found code=0
  shift
  found=$(git grep --untracked --line-number "$@") || code=$?
  ((code != 1)) || return 0
  printf '%s\n%s\n' "$heading" "$found"
  return 1
}

# What differs between the targets lies behind the platform layer, in files that end in Linux.cpp or Windows.cpp.
targets_are_told_apart_below_the_platform() {
  forbid 'a test for the target outside platform/, tests/support/ and the build files:' \
    --extended-regexp '\b(_WIN32|_WIN64|__linux__|__unix__|__MINGW32__|__MINGW64__)\b' -- \
    '*.cpp' '*.h' ':!platform/' ':!tests/support/'
}

# The tree explains itself: it does not point at papers that its readers do not have.
texts_stand_on_their_own() {
  forbid 'a text that points outside the tree:' \
    --extended-regexp --ignore-case '\bspecification\b|\bPart [0-9]+\.[0-9]+|\bissue #?[0-9]+|\bTODO\b|\bFIXME\b' -- \
    ':!scripts/lib/treeRules.sh'
}

headers_are_read_once() {
  local header code=0
  while read -r header; do
    if [[ -e $header ]] && ! grep --quiet --line-regexp '#pragma once' "$header"; then
      echo "$header: has no '#pragma once'"
      code=1
    fi
  done < <(git ls-files --cached --others --exclude-standard '*.h')
  return "$code"
}

# Owners (platform/raii.h) close; a close by hand is a leak on the next early return.
#
# Allowed besides platform/ itself:
#   tests/support/       uses the system's own headers on Windows, below our layer
#   tests/platform/      shows what the calls themselves do
#   a line that says "// closes by hand: " and why
owners_close() {
  forbid 'closed by hand, not by an owner of platform/raii.h:' \
    --extended-regexp -e '\b(CloseHandle|RegCloseKey|LocalFree)\(' --and --not -e '// closes by hand: ' -- \
    '*.cpp' '*.h' ':!platform/' ':!tests/support/' ':!tests/platform/'
}

# A disabled test looks like a passing one.
no_test_is_switched_off() {
  forbid 'a test that is switched off:' --extended-regexp '\bDISABLED_' -- 'tests/*.cpp'
}

# shellcheck disable=SC2034 # used by scripts/check
tree_rules=(
  targets_are_told_apart_below_the_platform
  texts_stand_on_their_own
  headers_are_read_once
  owners_close
  no_test_is_switched_off
)
