#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backupd/agents/agent_registry.h"
#include "backupd/catalog/resource_store.h"
#include "backupd/outcome.h"
#include "backupd/restore/restore_plan.h"
#include "json/value.h"

namespace backupd {

/// What backupd knows of a HANA system that takes part in a restore: its record, and the host whose agent would do it.
struct Restore_System {
  /// One instance of the system.
  struct Host {
    std::string uuid;
    std::string name;  ///< as HANA calls it
    bool connected = false;
    json_spirit::Object attributes;

    /// Whether HANA spans several hosts there and told which one is the active master.
    [[nodiscard]] bool tells_master() const;
    [[nodiscard]] bool is_master() const;
    void forget_master();
    /// For people.
    [[nodiscard]] std::string label() const;
  };

  std::string resource_uuid;
  std::string name;           ///< of the resource, "<SID>_<instance>"
  std::string instance_name;  ///< "HDB00"
  std::string sid;
  std::string version;
  std::string host_uuid;  ///< the active master's, else the first whose agent is connected
  std::string host_name;
  bool connected = false;
  bool multi_container = false;
  std::vector<Host> hosts;  ///< all of it, as registered

  [[nodiscard]] Outcome load(Resource_Store& resources, const Agent_Registry& agents, const std::string& uuid);
  /// Makes host_uuid the one host that can restore `database`: HANA's active master, and of a replicated system the
  /// primary. The agents that are connected are asked for what they know now. `wanted`: that one of the hosts and no
  /// other; may be empty. The refusal when it cannot be told or is not there; host_uuid is the best guess then.
  [[nodiscard]] std::optional<Plan_Remark> choose_host(const Agent_Registry& agents, const std::string& wanted,
                                                       const std::string& database);
  [[nodiscard]] bool has_host(const std::string& uuid) const;
  /// Those that are restarted behind a restore of the system database: the others of a system over several hosts.
  [[nodiscard]] std::vector<const Host*> others_to_restart(const std::string& database) const;
  /// A version that takes neither its catalog from the backups nor a delta.
  [[nodiscard]] bool is_ancient() const;
  /// Whether the database stands for the whole system: a single container, or the system database.
  [[nodiscard]] bool is_system_database(const std::string& database) const;

 private:
  using Candidates = std::vector<const Host*>;
  void take(const Host& host);
  void ask_again(const Agent_Registry& agents);
  /// Those that may be the active master or the primary by what they tell.
  [[nodiscard]] Candidates masters() const;
  [[nodiscard]] Candidates open_ones(const Agent_Registry& agents, const Candidates& candidates) const;
  [[nodiscard]] Plan_Remark master_away(const Host& master) const;
  [[nodiscard]] Plan_Remark not_master(const std::string& wanted, const Candidates& masters) const;
  [[nodiscard]] Plan_Remark unknown_master(const Candidates& candidates, std::size_t open) const;
};

}  // namespace backupd
