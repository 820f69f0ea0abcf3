#include "hana/common/sap_control_output.h"

#include <string>

#include "hana/common/text_lines.h"

namespace sap_hana {

namespace {

// What sapcontrol documents for GetProcessList. 0 says only that the call worked: some processes run, some do not.
constexpr int exit_mixed = 0;
constexpr int exit_all_running = 3;
constexpr int exit_all_stopped = 4;

}  // namespace

bool state_of_process_list(int exit_code, Instance_Controller::Instance_State& state) {
  switch (exit_code) {
    case exit_all_running:
      state = Instance_Controller::INSTANCE_STATE_RUNNING;
      return true;
    case exit_all_stopped:
      state = Instance_Controller::INSTANCE_STATE_STOPPED;
      return true;
    case exit_mixed:
      state = Instance_Controller::INSTANCE_STATE_UNKNOWN;
      return true;
    default:
      return false;
  }
}

Instance_Controller::Instance_State state_of_process_tree(std::string_view text, std::string_view sid,
                                                          std::string_view instance_name) {
  const std::string daemon = "hdb.sap" + std::string(sid) + "_" + std::string(instance_name);
  bool daemon_runs = false;
  bool server_runs = false;
  while (!text.empty()) {
    const std::string_view line = take_line(text);
    if (line.find(daemon) != std::string_view::npos) daemon_runs = true;
    for (const std::string_view server : {"hdbnameserver", "hdbindexserver"})
      if (line.find(server) != std::string_view::npos) server_runs = true;
  }
  if (daemon_runs && server_runs) return Instance_Controller::INSTANCE_STATE_RUNNING;
  if (!daemon_runs && !server_runs) return Instance_Controller::INSTANCE_STATE_STOPPED;
  return Instance_Controller::INSTANCE_STATE_UNKNOWN;
}

}  // namespace sap_hana
