# Sourced by tools/demo: a mistake is made, and a tenant is restored to the moment before it; the same backup comes back
# under another name.
# shellcheck shell=bash disable=SC2154

# in_tenant DATABASE STATEMENT
in_tenant() { "$hana/exe/hdbsql" -xCja -i "$number" -d "$1" -u SYSTEM -p manager "$2"; }

# all_of DATABASE: what a tenant holds, as HANA tells it.
all_of() {
  in_tenant "$1" "SELECT K, V FROM KV"
  in_tenant "$1" "SELECT NAME FROM GOODS"
}

# holds_the_log_until TIME: the plan of a restore to it is not refused.
holds_the_log_until() { dorsal3 restore $instance/TN1 --to "$1" --plan; }

make_a_mistake() {
  in_tenant TN1 "UPSERT KV VALUES ('customer', 'kept')" >/dev/null
  in_tenant TN1 "CREATE TABLE GOODS (NAME NVARCHAR(20))" >/dev/null
  in_tenant TN1 "UPSERT GOODS VALUES ('bolts')" >/dev/null
  all_of TN1 >"$root/before_the_mistake"
  sleep 1.1 # HANA recovers to whole seconds: the mistake is made in a later one
  before=$(date -u '+%Y-%m-%d %H:%M:%S')
  sleep 1.1
  in_tenant TN1 "UPSERT KV VALUES ('customer', 'overwritten')" >/dev/null
  in_tenant TN1 "DROP TABLE GOODS" >/dev/null
}

# close_logs_every SECONDS: how long a log segment stays open.
close_logs_every() {
  ask_hana "ALTER SYSTEM ALTER CONFIGURATION ('global.ini','SYSTEM') SET ('persistence','log_backup_timeout_s') = '$1' WITH RECONFIGURE" >/dev/null
}

# Has every service's log closed and saved a few times, so that the moment is in all of them.
close_logs() {
  close_logs_every 2
  sleep 5
  close_logs_every 900
}

restore_it() {
  say "A row of TN1 is overwritten and a table dropped, by mistake"
  make_a_mistake
  in_tenant TN1 "SELECT NAME FROM GOODS" >/dev/null 2>&1 && fail "the table GOODS is still there"
  say "HANA backs its logs up by itself, until they hold the moment before"
  close_logs
  wait_until 120 "a log backup that holds $before" holds_the_log_until "$before"
  say "dorsal3 restore $instance/TN1 --to '$before' --plan"
  dorsal3 restore $instance/TN1 --to "$before" --plan
  say "dorsal3 restore $instance/TN1 --to '$before' --run --confirm TN1"
  dorsal3 restore $instance/TN1 --to "$before" --run --confirm TN1
  all_of TN1 >"$root/after_the_restore"
  diff "$root/before_the_mistake" "$root/after_the_restore" || fail "TN1 is not what it was at $before"
  say "The same under another name: dorsal3 restore $instance/TN1 --to '$before' --into $instance/TN2 --run --confirm TN2"
  dorsal3 restore $instance/TN1 --to "$before" --into $instance/TN2 --run --confirm TN2
  all_of TN2 >"$root/under_another_name"
  diff "$root/before_the_mistake" "$root/under_another_name" || fail "TN2 is not what TN1 was at $before"
  say "And into a tenant that HANA creates for it: dorsal3 restore $instance/TN1 --to '$before' --as TN3 --create --run --confirm TN3"
  dorsal3 restore $instance/TN1 --to "$before" --as TN3 --create --run --confirm TN3 <<<manager
  all_of TN3 >"$root/in_a_new_tenant"
  diff "$root/before_the_mistake" "$root/in_a_new_tenant" || fail "TN3 is not what TN1 was at $before"
}
