# Sourced by tools/demo: what its steps are told with, and the end of everything.
# shellcheck shell=bash disable=SC2154 # root, hana and pids are the demo's

say() { printf '\n== %s\n' "$*"; }
fail() {
  printf 'demo: %s\n' "$*" >&2
  exit 1
}

show_logs() {
  for log in "$root"/log/*.log "$root"/var/opt/tarvex/dorsal3/*/*.log; do
    [ -s "$log" ] || continue
    printf -- '--- the end of %s\n' "${log#"$root"}" >&2
    tail -n 25 "$log" >&2
  done
}

stop_all() {
  local status=$? i
  trap - EXIT INT TERM
  [ "$status" -eq 0 ] || show_logs
  # The last one started is the first to go; each is ours, by its id.
  for ((i = ${#pids[@]} - 1; i >= 0; i--)); do
    kill -TERM "${pids[i]}" 2>/dev/null || true
    wait "${pids[i]}" 2>/dev/null || true
  done
  [ -x "$hana/HDB" ] && "$hana/HDB" stop >/dev/null 2>&1 || true
  if [ -n "${DORSAL3_DEMO_KEEP:-}" ]; then
    printf 'demo: everything is kept in %s\n' "$root"
  else
    rm -rf "$root"
  fi
  exit "$status"
}
# wait_until SECONDS WHAT COMMAND...
wait_until() {
  local limit=$((SECONDS + $1)) what=$2
  shift 2
  until "$@" >/dev/null 2>&1; do
    [ "$SECONDS" -lt "$limit" ] || fail "$what did not happen in time"
    sleep 0.1
  done
}

# The person at the keyboard.
dorsal3() { HOME=$root "$bin/dorsal3" "$@"; }

# json_values KEY: each value of that key in the JSON on standard input, a line each.
json_values() { sed -nE "s/^ *\"$1\": \"?([^\",]*)\"?,?\$/\1/p"; }

# rest PATH: one answer of backupd, as an operator gets it.
rest() {
  local host_port=${url#http://}
  local answer
  exec {backupd}<>"/dev/tcp/${host_port%:*}/${host_port#*:}"
  printf 'GET /q5/r/v2%s HTTP/1.1\r\nHost: %s\r\nAuthorization: Bearer %s\r\nConnection: close\r\n\r\n' \
    "$1" "$host_port" "$(<"$root/etc/opt/tarvex/dorsal3/operator.key")" >&"$backupd"
  answer=$(tr -d '\r' <&"$backupd")
  exec {backupd}>&-
  printf '%s\n' "${answer#*$'\n\n'}"
}

# ask_hana STATEMENT: what HANA's own administrator sees.
ask_hana() { "$hana/exe/hdbsql" -xCja -i "$number" -d SYSTEMDB -u SYSTEM -p manager "$1"; }

# control VERB...: what happens to the stand-in.
control() { "$build/standin/standin-hana-control" --root "$root" --sid "$sid" "$@" >>"$root/log/standin.log"; }
