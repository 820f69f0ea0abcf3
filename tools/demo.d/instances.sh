# Sourced by tools/demo: the lists of instances and databases, and a restart of the instance.
# shellcheck shell=bash disable=SC2154

show_lists() {
  local names
  say "dorsal3 instances"
  dorsal3 instances
  say "dorsal3 databases $instance"
  dorsal3 databases "$instance"
  names=$(dorsal3 databases "$instance" --output json | sed -n '/"databases"/,$p' | json_values name | sort | tr '\n' ' ')
  [ "$names" = "SYSTEMDB TN1 TN2 " ] || fail "the list of databases is wrong: $names"
}

restart_instance() {
  say "dorsal3 instance restart $instance"
  dorsal3 instance restart "$instance"
  dorsal3 instance state "$instance"
  dorsal3 instance state "$instance" --output json | grep -q '"state": "running"' || fail "the instance does not run"
  say "dorsal3 audit"
  dorsal3 audit
  [ "$(dorsal3 audit --output json | json_values action)" = restart ] || fail "the audit log does not hold the restart"
}
