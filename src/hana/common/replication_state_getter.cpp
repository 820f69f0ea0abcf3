#include "hana/common/replication_state_getter.h"

#include <chrono>
#include <vector>

#include "hana/common/hana_paths.h"
#include "hana/common/ini_file.h"
#include "hana/common/installation.h"
#include "hana/common/instance_tool.h"
#include "hana/common/replication_output.h"
#include "hana/common/text_lines.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "scrt/path_t.h"

namespace sap_hana {

namespace {

using State = Replication_State_Getter::Replication_State;

constexpr std::chrono::seconds tool_limit{60};
constexpr std::chrono::seconds retry_interval{10};
/// Services that start take a while until they know their mode.
constexpr int attempts = 4;

bool take_value(std::string_view line, std::string_view key, std::string& value) {
  if (!line.starts_with(key)) return false;
  line.remove_prefix(key.size());
  if (!line.starts_with(':') && !line.starts_with('=')) return false;
  value = trimmed(line.substr(1));
  return true;
}

Tool_Result ask(const std::string& sid, const std::string& instance_name, const char* option) {
  const std::string program = scrt::join_path(executable_directory(sid, instance_name), "hdbnsutil");
  return run_tool(instance_tool(sid, instance_name, program, {option}), tool_limit);
}

bool ask_services(const std::string& sid, const std::string& instance_name, State& state) {
  for (int attempt = 1;; ++attempt) {
    const Tool_Result result = ask(sid, instance_name, "-sr_state");
    if (!result.status.started || result.timed_out) return false;
    if (parse_replication_state(result.output, state)) return true;
    if (attempt == attempts) return false;
    platform::Clock::current().sleep_for(retry_interval);
  }
}

bool ask_configuration_tool(const std::string& sid, const std::string& instance_name, State& state) {
  return parse_replication_state(ask(sid, instance_name, "-sr_stateConfiguration").output, state);
}

bool read_configuration(const std::string& sid, State& state) {
  Ini_File ini;
  if (!read_system_configuration(sid, "global.ini", ini)) return false;
  constexpr const char* section = "system_replication";
  const std::string* mode = ini.find(section, "actual_mode");
  if (mode == nullptr || mode->empty()) mode = ini.find(section, "mode");
  const std::string* operation_mode = ini.find(section, "operation_mode");
  // A system that was never set up for replication has no such section.
  state.mode = mode == nullptr || mode->empty() ? "none" : *mode;
  state.operation_mode = operation_mode == nullptr ? "" : *operation_mode;
  return true;
}

}  // namespace

bool parse_replication_state(std::string_view text, State& state) {
  State found;
  while (!text.empty()) {
    const std::string_view line = take_line(text);
    if (!take_value(line, "mode", found.mode))
      static_cast<void>(take_value(line, "operation mode", found.operation_mode));
  }
  if (found.mode.empty()) return false;
  state = std::move(found);
  return true;
}

bool Replication_State_Getter::get_state(Replication_State& state) {
  state = {};
  const std::vector<std::string> instances = installed_instances(sid_);
  if (instances.empty()) {
    D3_ERROR("HANA system '%C' is not installed on this host\n", platform::cut_for_log(sid_).c_str());
    return false;
  }
  const std::string& instance_name = instances.front();
  return ask_services(sid_, instance_name, state) || ask_configuration_tool(sid_, instance_name, state) ||
         read_configuration(sid_, state);
}

}  // namespace sap_hana
