# Sourced by tools/demo: installs and starts the programs below the temporary folder.
# shellcheck shell=bash disable=SC2154

install_product() {
  mkdir -p "$bin" "$root/opt/tarvex/dorsal3/lib/modules" "$root/etc/opt/tarvex/dorsal3" "$root/log" "$root/srv/pool"
  local program
  for program in dorsal3 dorsal3-agent dorsal3-backupd hdbbackint; do
    cp -l "$build/bin/$program" "$bin/" 2>/dev/null || cp "$build/bin/$program" "$bin/"
  done
  cp "$build/lib/libdorsal3.so" "$root/opt/tarvex/dorsal3/lib/"
  cp "$build/lib/hana.so" "$root/opt/tarvex/dorsal3/lib/modules/"
}

# write_secret FILE: standard input into a file for its owner alone
write_secret() { (umask 077 && cat >"$1"); }

start_backupd() {
  printf 'address = "127.0.0.1"\nport = 0\n' >"$root/etc/opt/tarvex/dorsal3/backupd.toml"
  "$bin/dorsal3-backupd" serve 2>"$root/log/backupd.log" &
  pids+=($!)
  local port_file=$root/var/opt/tarvex/dorsal3/backupd/port
  wait_until 20 "the start of backupd" test -s "$port_file"
  url=http://127.0.0.1:$(<"$port_file")
}

configure() {
  local etc=$root/etc/opt/tarvex/dorsal3
  host_uuid=$(</proc/sys/kernel/random/uuid)
  "$bin/dorsal3-backupd" key add --role agent --host "$host_uuid" 2>>"$root/log/backupd.log" | write_secret "$etc/agent.key"
  "$bin/dorsal3-backupd" key add --role operator 2>>"$root/log/backupd.log" | write_secret "$etc/operator.key"
  cat >"$etc/agent.toml" <<CONFIGURATION
server_url = "$url"
host_uuid = "$host_uuid"
access_key_file = "/etc/opt/tarvex/dorsal3/agent.key"
modules = ["hana"]
CONFIGURATION
  cat >"$etc/dorsal3.toml" <<CONFIGURATION
server = "$url"
key_file = "/etc/opt/tarvex/dorsal3/operator.key"
CONFIGURATION
}

start_hana() {
  "$build/standin/standin-hana-install" --root "$root" --sid "$sid" --nr "$number" --version 2.00.059.00.1632920961 \
    --tenant TN1 --tenant TN2 --services indexserver,xsengine --data-mb "$data_mb" >"$root/log/standin.log"
  "$hana/HDB" start >>"$root/log/standin.log"
}

start_agent() {
  "$bin/dorsal3-agent" 2>"$root/log/agent.log" &
  pids+=($!)
  wait_until 20 "the agent's connection" grep -q "Backupd has accepted this agent" "$root/log/agent.log"
}
