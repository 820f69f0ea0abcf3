#pragma once

#include <string>

#include "agent/instance/instance_manager.h"
#include "agentd/modules/module.h"
#include "net/json_rpc_peer.h"

namespace agentd {

/// The requests about database instances. Types are those of the modules' handlers: a module handles the type of its
/// own name. Any thread.
class Instance_Service {
 public:
  Instance_Service(const Modules& modules, Instance_Manager& manager) : modules_(modules), manager_(manager) {}

  /// Asks every module for its instances and stores them; {"instances": [{"type", "name", "uuid", "extended_attrs"}]}.
  [[nodiscard]] JSON_RPC_Answer probe();
  /// {"state"}: "open" or "error".
  [[nodiscard]] JSON_RPC_Answer state(const json_spirit::Object& params);
  /// Tries an account and stores it when it is good: {"code", "message"}, code 0 when it is stored.
  [[nodiscard]] JSON_RPC_Answer logon(const json_spirit::Object& params);
  /// What a backup needs, each with a verdict: {"checks": [{"name", "ok", "message"}]}.
  [[nodiscard]] JSON_RPC_Answer check(const json_spirit::Object& params);

 private:
  struct Subject {
    std::string type;
    std::string name;
    Instance_Handler* handler = nullptr;
    JSON_RPC_Handler* lister = nullptr;  ///< null when the module has none
    Instance_Manager::Instance_var instance;
  };

  [[nodiscard]] bool find_subject(const json_spirit::Object& params, Subject& subject, JSON_RPC_Answer& refusal) const;
  [[nodiscard]] json_spirit::Object check_state(const Subject& subject) const;
  [[nodiscard]] json_spirit::Object check_account(const Subject& subject) const;
  [[nodiscard]] json_spirit::Object check_databases(const Subject& subject) const;

  const Modules& modules_;
  Instance_Manager& manager_;
};

}  // namespace agentd
