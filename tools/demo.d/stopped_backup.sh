# Sourced by tools/demo: a full backup that is stopped in the middle, and what is left of it: nothing.
# shellcheck shell=bash disable=SC2154

slow_bytes_per_second=2000000

# Directories of backups on the pool.
datasets() { find "$root/srv/pool" -mindepth 4 -maxdepth 4 -type d | sort; }

# A directory that was not there before holds data by now.
data_arrives() {
  [ -n "$(comm -13 "$root/log/datasets.before" <(datasets) | xargs -r -I{} find {} -type f -size +0)" ]
}

newest_state() {
  ask_hana "select STATE_NAME from SYS_DATABASES.M_BACKUP_CATALOG order by BACKUP_ID desc limit 1"
}

datasets_are_as_before() { [ -z "$(comm -3 "$root/log/datasets.before" <(datasets))" ]; }

backup_and_stop_it() {
  local run
  datasets >"$root/log/datasets.before"
  control fault "stream_bytes_per_second = $slow_bytes_per_second"
  run=$(dorsal3 backup "$instance/TN1" --detach --output json | json_values job)
  wait_until 20 "the arrival of data on the pool" data_arrives
  printf 'HANA says: %s\n' "$(newest_state)"
  say "dorsal3 stop $run"
  dorsal3 stop "$run"
  control no-faults
  check_what_is_left "$run"
}

check_what_is_left() {
  local state
  state=$(newest_state)
  [ "$state" = canceled ] || fail "HANA's catalog says $state"
  wait_until 20 "the removal of the dataset directory" datasets_are_as_before
  rest "/backint/jobs?job_act_id=$1" >"$root/log/records"
  grep -q '"total":0' "$root/log/records" || fail "Backint records are left: $(<"$root/log/records")"
  printf 'HANA says: %s. The pool holds no directory of it, backupd no Backint record.\n' "$state"
}
