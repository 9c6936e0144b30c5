# The resident's road of scripts/run: the helper brings files and registrations up to date, follows a change of the
# settings, and withdraws everything when the machine's `Origin` goes.
# shellcheck shell=bash disable=SC2154

samples=docs/samples

# The folders that the browsers and their extension would have made.
make_browsers() {
  local data
  data=$(host_path "$(probe data-folder | tr -d '\r')")
  extensions=("$data/Google/Chrome/User Data/Default/Extensions" "$data/Microsoft/Edge/User Data/Default/Extensions")
  firefox=$data/Mozilla/Firefox/Profiles
  version=pgmkcoafbnjdeihlmkgobfajcpeidnhl/8.18.0_0
  mkdir -p "${extensions[0]}/$version" "${extensions[1]}/$version" "$firefox"
}

data_files() { find "${extensions[@]}" "$firefox" -name data.json | sort; }

# A change counts as followed once the last of the files shows it.
await() {
  local i
  for ((i = 0; i < 400; i++)); do
    ! "$@" || return 0
    sleep 0.05
  done
  return 1
}

files_name() { [[ $(data_files | wc -l) -eq 3 ]] && grep --quiet --fixed-strings "$1" "$firefox/data.json"; }

show_files() {
  local file
  printf '\n%s\n' "$1"
  while read -r file; do
    printf '  %s\n' "$(machine_path "$file")"
    grep --only-matching '"clientRules" : .*' "$file" | sed 's/,$//; s/^/      /'
  done < <(data_files)
  [[ -n $(data_files) ]] || echo '  (no data file)'
}

show_registrations() {
  local registrations
  registrations=$(probe registrations | tr -d '\r')
  printf '\nRegistered for the user:\n'
  sed 's/^/  /' <<<"${registrations:-(nothing)}"
}

resident_fails() {
  printf '\nresident road: %s\n' "$1"
  exit 1
}

show_resident_road() {
  local resident_code=0
  make_browsers
  start_resident
  await files_name intranet.example || resident_fails "the data files were not written"
  show_files 'Data files:'
  show_registrations

  show $'\nchange' "$samples/resident-change.reg"
  import_registry "$root/$samples/resident-change.reg"
  await files_name elsewhere.example || resident_fails "the data files did not follow the change"
  show_files 'Data files:'

  show $'\nwithdrawal' "$samples/resident-withdraw.reg"
  import_registry "$root/$samples/resident-withdraw.reg"
  wait "$resident" || resident_code=$?
  resident=''
  show_files 'Data files:'
  show_registrations
  # shellcheck disable=SC2034 # show_log shows it
  log=$(log_of_this_run)
  show_log
  ((resident_code == 0)) || resident_fails "the resident helper's exit code is $resident_code, not 0"
  [[ -z $(data_files) ]] || resident_fails "a data file was left behind"
  [[ -z $(probe registrations) ]] || resident_fails "a registration was left behind"
  printf '\nresident road: done; the resident helper ended with exit code 0\n'
}
