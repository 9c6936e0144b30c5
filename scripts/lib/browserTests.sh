# The stage of scripts/test in which real browsers read what the resident helper writes. A document that is broken on
# its way has to be noticed, or the check would be none. Uses root, filter and count of scripts/test.
# shellcheck shell=bash disable=SC2154

# Name; exit code of tests/browsers/check.py that passes; its arguments.
browser_tests=(
  "chromium/reads-the-document          0 chromium"
  "chromium/notices-another-rule        3 chromium --break rule"
  "chromium/notices-a-document-cut-off  4 chromium --break truncate"
  "firefox/reads-the-document           0 firefox"
  "firefox/notices-another-rule         3 firefox --break rule"
  "firefox/notices-a-document-cut-off   4 firefox --break truncate"
)

run_browser_tests() {
  local began=$SECONDS built entry name wanted words code output arguments=() good=0 bad=0
  if ! scripts/setup --brief --browsers || ! build_quietly linux "$program_name" stand_ins; then
    printf '%-11s cannot be set up\n' browsers
    count 0 1
    return
  fi
  built=$((SECONDS - began))
  for entry in "${browser_tests[@]}"; do
    read -r name wanted words <<<"$entry"
    [[ browsers/$name =~ $filter ]] || continue
    read -ra arguments <<<"$words"
    code=0
    output=$(tests/browsers/check.py "${arguments[@]}" 2>&1) || code=$?
    if ((code == wanted)); then
      good=$((good + 1))
    else
      bad=$((bad + 1))
      printf 'browsers/%s failed: exit code %d, not %d\n%s\n' "$name" "$code" "$wanted" "$output"
    fi
  done
  if ((good + bad == 0)); then
    printf '%-11s no test matches %s\n' browsers "$filter"
    return
  fi
  printf '%-11s %d passed, %d failed (built in %d s, ran in %d s)\n' browsers "$good" "$bad" "$built" \
    $((SECONDS - began - built))
  count "$good" "$bad"
}
