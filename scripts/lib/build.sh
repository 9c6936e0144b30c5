# For the other scripts: set-up and builds that are silent unless they fail. Needs the tree's folder in $root.
# shellcheck shell=bash disable=SC2154

# shellcheck disable=SC2034 # used by the scripts that read this file
program_name=lumenar-url-protocol-launch-helper

# Runs a command; shows what it printed only when it fails, but for the lines that tell how far a build has come.
quietly() {
  local output code=0
  output=$(mktemp)
  "$@" >"$output" 2>&1 || code=$?
  ((code == 0)) || grep --invert-match --extended-regexp '^\[[0-9]+/[0-9]+\] (Building|Linking|Re-)' "$output" >&2 || true
  rm -f "$output"
  return "$code"
}

# configure_quietly PRESET
configure_quietly() {
  "$root/scripts/setup" --brief >&2 || return
  (cd "$root" && quietly cmake --preset "$1")
}

# build_quietly PRESET [TARGET ...]
build_quietly() {
  local preset=$1
  shift
  [[ -e $root/build/$preset/build.ninja ]] || printf 'building %s for the first time ...\n' "$preset" >&2
  configure_quietly "$preset" || return
  (cd "$root" && quietly cmake --build --preset "$preset" --parallel "$(nproc)" ${1:+--target "$@"})
}
