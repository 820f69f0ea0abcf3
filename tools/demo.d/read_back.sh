# Sourced by tools/demo: reads what was stored, as HANA and as an operator do.
# shellcheck shell=bash disable=SC2154

# Reads one object back through a named pipe, as HANA does, and compares it.
# Columns: backup id, database, service, name, external id, bytes, SHA-256.
check_object() {
  local database=$2 name=$4 ebid=${5//\"/} bytes=$6 sum=$7 user=$sid reader
  [ "$database" = SYSTEMDB ] || user=$database@$sid
  sha256sum <"$pipe" >"$root/log/restore.sum" &
  reader=$!
  if ! printf '#SOFTWAREID "backint 1.04" "demo"\n#EBID "%s" "%s" "%s"\n' "$ebid" "$name" "${pipe#"$root"}" |
    "$bin/hdbbackint" -f restore -u "$user" >"$root/log/restore.out" 2>>"$root/log/restore.log"; then
    kill "$reader" 2>/dev/null || true
    fail "hdbbackint does not restore $name: $(tail -n 1 "$root/log/restore.log")"
  fi
  wait "$reader"
  [ "$(cut -d ' ' -f 1 "$root/log/restore.sum")" = "$sum" ] || fail "$name is not what HANA wrote"
  printf 'equal  %s  %10d bytes  %s\n' "${sum:0:16}" "$bytes" "${name##*/}"
}

read_back_everything() {
  local checked=0 line
  pipe=$root/var/tmp/read_back
  mkfifo "$pipe"
  while IFS= read -r line; do
    IFS=$'\037' read -r -a columns <<<"$line"
    [ -n "${columns[4]}" ] || continue # a backup to a file is not ours
    check_object "${columns[@]}"
    checked=$((checked + 1))
  done < <(tr '\t' '\037' <"$hana/standin/backup_checksums.tsv") # a row of tabs would lose its empty columns
  [ "$checked" -gt 0 ] || fail "the stand-in wrote nothing through hdbbackint"
  printf '%d objects read back from the pool, all equal to what HANA wrote.\n' "$checked"
}

# set_ids: the uuids of the newest sets, oldest first.
set_ids() { dorsal3 info "$instance" --output json | sed -n '/"sets": \[/,$p' | json_values uuid; }

# verify_sets COUNT: every set is also verified the way an operator does it.
verify_sets() {
  local set sets
  sets=$(set_ids)
  [ "$(wc -w <<<"$sets")" -eq "$1" ] || fail "there are not $1 sets: $sets"
  for set in $sets; do dorsal3 verify "$set"; done
}
