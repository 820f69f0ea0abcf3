# Sourced by tools/demo: log backups that HANA begins by itself, each recorded as a set, and the chain they make.
# shellcheck shell=bash disable=SC2154

# A log segment is full after a few statements, so that nobody waits a quarter of an hour for HANA to close it.
segment_bytes=300
rounds=3

put_into_tenant() {
  local i
  for ((i = 1; i <= 5; i++)); do
    "$hana/exe/hdbsql" -xCja -i "$number" -d TN1 -u SYSTEM -p manager \
      "UPSERT KV VALUES ('round-$1-$i', '$(printf 'x%.0s' {1..60})')" >/dev/null
  done
}

# log_sets_are COUNT: so many log backups of TN1 are recorded, and nothing waits.
log_sets_are() {
  local sets
  sets=$(rest "/sets?database=TN1&type=log&limit=1")
  sets=${sets#*\"total\":}
  [ "${sets%%[,\}]*}" -ge "$1" ] || return 1
  rest "/backint/ondemand-runs?limit=1" | grep -q '"total":0'
}

back_logs_up() {
  local round
  say "dorsal3 log-backup enable $instance --compression zstd"
  dorsal3 log-backup enable $instance --compression zstd
  say "A full backup of TN1, from which its logs count: dorsal3 backup $instance/TN1"
  dorsal3 backup $instance/TN1 --compression zstd
  control fault "log_segment_bytes = $segment_bytes"
  for ((round = 1; round <= rounds; round++)); do
    say "New data in TN1: HANA closes its log segment and backs it up, nobody asks it to ($round of $rounds)"
    put_into_tenant "$round"
    wait_until 60 "the recording of log backup $round" log_sets_are "$round"
  done
  control no-faults
  say "dorsal3 log-backup status $instance"
  dorsal3 log-backup status $instance
  say "dorsal3 info --logs $instance/TN1"
  # Ends with 9 when the chain has a gap.
  dorsal3 info --logs $instance/TN1
}
