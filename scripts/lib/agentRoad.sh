# The other end of the agent's road of scripts/run: a stand-in of the service that URLs are posted to.
# shellcheck shell=bash disable=SC2034,SC2154

service_lines='' service_code=''

# A service that has ended tells why on standard error.
start_service() {
  local first=''
  show_start service "$tests/standInService$suffix"
  coproc SERVICE { on_machine "$tests/standInService$suffix"; }
  service=$SERVICE_PID
  exec {service_output}<&"${SERVICE[0]}" {service_input}>&"${SERVICE[1]}"
  read -r first <&"$service_output" || fail "the service does not start"
  service_lines=${first%$'\r'}
}

# Lets it finish with the launcher, which has ended by now, and keeps what it printed.
end_service() {
  service_code=0
  echo end >&"$service_input"
  service_lines+=$'\n'$(tr -d '\r' <&"$service_output")
  wait "$service" || service_code=$?
  service=''
}

show_service() {
  printf '\nThe service printed:\n'
  sed 's/^/  /' <<<"${service_lines%$'\n'}"
}

# What the service took in, a line for each command: "2 url https://..."
posted_commands() { sed --quiet 's/^command //p' <<<"$service_lines"; }
