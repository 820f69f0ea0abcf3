#pragma once

#include "agent/api/instance_handler.h"

/// Discovers the HANA instances of this host, tells their state and checks credentials. Keeps nothing between calls.
class HANA_Instance_Handler : public Instance_Handler {
 public:
  int probe_instances(Instances& instances) override;
  /// "open" for an instance that runs and is not the secondary of a system replication, "error" for everything else.
  std::string get_state(const char* name, std::string& state) override;
  int logon(const char* instance_name, const char* username, const secure_string* password,
            const json_spirit::Object* options) override;
  ~HANA_Instance_Handler() override;
};
