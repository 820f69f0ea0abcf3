#pragma once

#include <map>
#include <memory>
#include <string>

#include "agent/api/instance.h"
#include "json/value.h"

/// Discovers and checks the instances of one type. Slots: probe_instances, get_state, logon, destructor. May be called
/// from several threads at once.
class Instance_Handler {
 public:
  using Instances = std::map<std::string, std::shared_ptr<Instance>>;

  enum Logon_Result { LOGON_OK = 0, LOGON_FAILED = -1, LOGON_REFUSED = -32000 };

  /// Adds or replaces one entry per instance found, by name; removes none. 0, or -1 when instances cannot be listed.
  /// The records are the module's: the caller copies what it keeps and drops them before the module is unloaded.
  virtual int probe_instances(Instances& instances) = 0;
  /// Stores "open" or "error" in `state` and returns the same text. `name` may be null.
  virtual std::string get_state(const char* name, std::string& state) = 0;
  /// Tries credentials: LOGON_OK, LOGON_FAILED (bad arguments or the tool could not be set up) or LOGON_REFUSED. Every
  /// pointer may be null; without user and password there is nothing to check.
  virtual int logon(const char* instance_name, const char* username, const secure_string* password,
                    const json_spirit::Object* options) = 0;

  virtual ~Instance_Handler() = default;
};
