// Which host of a system over several hosts restores.

#include <algorithm>

#include "backupd/restore/restore_target.h"

namespace backupd {

namespace {

/// The agents read files and ask a tool; a plan does not wait longer for one that hangs.
constexpr std::chrono::seconds look_timeout{20};
constexpr char resource_type[] = "hana";
constexpr char state_open[] = "open";

/// What the agent finds of the instance called `name`; empty when it does not say.
json_spirit::Object probed(const Agent_Registry& agents, const std::string& host, const std::string& name) {
  const JSON_RPC_Answer answer = agents.call(host, "instance.probe", json_spirit::Object(), look_timeout);
  json_spirit::Array instances;
  if (!answer.ok || !answer.result.is_object()) return {};
  json_spirit::object_get(answer.result.get_obj(), "instances", instances);
  for (const json_spirit::Value& value : instances) {
    std::string found;
    json_spirit::Object attributes;
    if (value.is_object() && json_spirit::object_get(value.get_obj(), "name", found) && found == name &&
        json_spirit::object_get(value.get_obj(), "extended_attrs", attributes))
      return attributes;
  }
  return {};
}

/// Whether the instance runs there and is no secondary of a replication.
bool is_open(const Agent_Registry& agents, const std::string& host, const std::string& name) {
  const json_spirit::Object params{{"type", resource_type}, {"name", name}};
  const JSON_RPC_Answer answer = agents.call(host, "instance.state", params, look_timeout);
  std::string state;
  return answer.ok && answer.result.is_object() && json_spirit::object_get(answer.result.get_obj(), "state", state) &&
         state == state_open;
}

std::string labels(const std::vector<const Restore_System::Host*>& hosts) {
  std::string text;
  for (const Restore_System::Host* host : hosts) text += (text.empty() ? "" : ", ") + host->label();
  return text;
}

json_spirit::Array uuids(const std::vector<const Restore_System::Host*>& hosts) {
  json_spirit::Array array;
  for (const Restore_System::Host* host : hosts) array.emplace_back(host->uuid);
  return array;
}

}  // namespace

std::optional<Plan_Remark> Restore_System::choose_host(const Agent_Registry& agents, const std::string& wanted,
                                                       const std::string& database) {
  if (hosts.size() > 1 || version.empty()) ask_again(agents);
  if (hosts.size() == 1) {
    take(hosts.front());
    return std::nullopt;
  }
  Candidates candidates = masters();
  const bool alone = candidates.size() == 1;
  const Candidates open = alone ? candidates : open_ones(agents, candidates);
  if (candidates.empty())
    for (const Host& host : hosts) candidates.push_back(&host);
  const Candidates& meant = open.empty() ? candidates : open;
  const auto is_wanted = [&](const Host* host) { return wanted.empty() || host->uuid == wanted; };
  const auto chosen = std::find_if(meant.begin(), meant.end(), is_wanted);
  if (chosen == meant.end()) {
    take(*std::find_if(hosts.begin(), hosts.end(), [&](const Host& host) { return host.uuid == wanted; }));
    // The master may be lost with its host, and HANA unable to name another one before it is restored.
    const bool master_is_lost = alone && !candidates.front()->connected && connected;
    return master_is_lost ? std::nullopt : std::optional(not_master(wanted, meant));
  }
  const auto there =
      std::find_if(meant.begin(), meant.end(), [&](const Host* host) { return is_wanted(host) && host->connected; });
  take(there == meant.end() ? **chosen : **there);
  if (alone && !connected) return master_away(*candidates.front());
  const bool told = open.size() == 1 || !wanted.empty();
  // A tenant is recovered by statements, which no other host takes.
  if (told || (open.empty() && !is_system_database(database))) return std::nullopt;
  return unknown_master(candidates, open.size());
}

/// After a failover, or after a takeover, the record is old.
void Restore_System::ask_again(const Agent_Registry& agents) {
  for (Host& host : hosts) {
    if (!host.connected) continue;
    const json_spirit::Object found = probed(agents, host.uuid, name);
    if (!found.empty()) host.forget_master();
    for (const auto& [key, value] : found) host.attributes[key] = value;
  }
}

Restore_System::Candidates Restore_System::masters() const {
  Candidates all;
  Candidates masters;
  Candidates away;
  bool told = false;
  for (const Host& host : hosts) {
    all.push_back(&host);
    told = told || host.tells_master();
    if (host.is_master()) masters.push_back(&host);
    if (!host.connected) away.push_back(&host);
  }
  if (!told) return all;
  // Where those that are there are no masters, another one is.
  return masters.empty() ? away : masters;
}

Restore_System::Candidates Restore_System::open_ones(const Agent_Registry& agents, const Candidates& candidates) const {
  Candidates open;
  for (const Host* host : candidates)
    if (host->connected && is_open(agents, host->uuid, name)) open.push_back(host);
  return open;
}

Plan_Remark Restore_System::master_away(const Host& master) const {
  return {
      refusal::master_away,
      "the active master of " + name + " is " + master.label() +
          ", whose agent is not connected, and HANA is restored on no other host; start that agent, or, when "
          "another host has become the master, that one's, and run: dorsal3 discover; where that host is lost, name "
          "the one that takes its place with --host",
      {{"host_uuid", master.uuid}}};
}

Plan_Remark Restore_System::not_master(const std::string& wanted, const Candidates& masters) const {
  return {refusal::not_master,
          name + " is not restored on the host " + wanted +
              ": its active master, or the primary of its replication, is " + labels(masters) +
              "; after a failover run: dorsal3 discover",
          {{"hosts", uuids(masters)}}};
}

Plan_Remark Restore_System::unknown_master(const Candidates& candidates, std::size_t open) const {
  const std::string why = open == 0 ? "no instance of it is known to be open" : "several instances of it are open";
  return {refusal::unknown_master,
          "which host of " + name + " restores cannot be told, for HANA's active master is not known and " + why +
              "; start its agents and run: dorsal3 discover, or name the host: " + labels(candidates),
          {{"hosts", uuids(candidates)}}};
}

}  // namespace backupd
