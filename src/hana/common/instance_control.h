#pragma once

#include <ace/Basic_Types.h>

#include <string>

namespace sap_hana {

/// State, start and stop of the instances of one system on this host, through sapcontrol and the instance's HDB
/// command. Used by one thread at a time.
class Instance_Controller {
 public:
  enum Instance_State { INSTANCE_STATE_UNKNOWN = 0, INSTANCE_STATE_RUNNING = 1, INSTANCE_STATE_STOPPED = 2 };
  enum HDB_ACTION { HDB_ACTION_UNKNOWN = 0, HDB_ACTION_START = 1, HDB_ACTION_STOP = 2, HDB_ACTION_RESTART = 3 };

  explicit Instance_Controller(const std::string& sid) : sid_(sid) {}

  /// Running: all its processes run. Stopped: none does. Unknown: something between, as while it starts. False, with a
  /// message, when it cannot be told; `state` is then unknown.
  [[nodiscard]] bool get_state(ACE_UINT16 instance_number, Instance_State& state);
  [[nodiscard]] bool get_state(const std::string& instance_name, Instance_State& state);
  /// Each returns when it is done: true when the instance has reached the state. False, with a message, when the
  /// command failed or the state was not reached in time.
  [[nodiscard]] bool start(const std::string& instance_name);
  [[nodiscard]] bool stop(const std::string& instance_name);
  [[nodiscard]] bool restart(const std::string& instance_name);
  [[nodiscard]] bool hdb_action(const std::string& instance_name, HDB_ACTION action);
  /// "/usr/sap/<SID>/HDB<NN>". False when it is no instance name of this system or, with `check`, when there is no such
  /// directory.
  [[nodiscard]] bool get_instance_dir(const std::string& instance_name, std::string& dir, bool check);

 private:
  std::string sid_;
};

}  // namespace sap_hana
