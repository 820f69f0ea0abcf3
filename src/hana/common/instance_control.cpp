#include "hana/common/instance_control.h"

#include <chrono>

#include "hana/common/hana_paths.h"
#include "hana/common/installation.h"
#include "hana/common/instance_tool.h"
#include "hana/common/sap_control_output.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/log.h"
#include "scrt/path_t.h"

namespace sap_hana {

namespace {

using std::chrono::seconds;

constexpr seconds state_limit{60};
/// HDB itself waits 2700 seconds for the start, and 400 and 600 for the stop.
constexpr seconds start_command_limit{3000};
constexpr seconds stop_command_limit{1200};
constexpr seconds start_wait_limit{2700};
constexpr seconds stop_wait_limit{600};
constexpr seconds state_poll_interval{10};

struct Action {
  const char* verb;
  Instance_Controller::Instance_State wanted;
  seconds command_limit;
  seconds wait_limit;
};

constexpr Action start_action{"start", Instance_Controller::INSTANCE_STATE_RUNNING, start_command_limit,
                              start_wait_limit};
constexpr Action stop_action{"stop", Instance_Controller::INSTANCE_STATE_STOPPED, stop_command_limit, stop_wait_limit};

bool check_installed(const std::string& sid, const std::string& instance_name) {
  if (is_installed(sid, instance_name)) return true;
  D3_ERROR("HANA instance '%C' of system '%C' is not installed on this host\n",
           platform::cut_for_log(instance_name).c_str(), platform::cut_for_log(sid).c_str());
  return false;
}

Tool_Result ask_sapcontrol(const std::string& sid, const std::string& instance_name) {
  const std::string program = scrt::join_path(executable_directory(sid, instance_name), "sapcontrol");
  return run_tool(
      instance_tool(sid, instance_name, program, {"-nr", instance_name.substr(3), "-function", "GetProcessList"}),
      state_limit);
}

Tool_Result run_hdb(const std::string& sid, const std::string& instance_name, const char* verb, seconds limit) {
  const std::string program = scrt::join_path(instance_directory(sid, instance_name), "HDB");
  platform::Process_Spec spec = instance_tool(sid, instance_name, program, {verb});
  spec.working_directory = instance_directory(sid, instance_name);
  return run_tool(std::move(spec), limit);
}

/// `name` is the instance's, for people.
bool wait_for_state(Instance_Controller& controller, const std::string& instance_name, const std::string& name,
                    const Action& action) {
  platform::Clock& clock = platform::Clock::current();
  const auto until = clock.steady_now() + action.wait_limit;
  for (;;) {
    Instance_Controller::Instance_State state = Instance_Controller::INSTANCE_STATE_UNKNOWN;
    if (!controller.get_state(instance_name, state)) return false;
    if (state == action.wanted) return true;
    if (clock.steady_now() >= until) {
      D3_ERROR("HANA instance %C did not %C within %q seconds\n", name.c_str(), action.verb,
               static_cast<ACE_INT64>(action.wait_limit.count()));
      return false;
    }
    clock.sleep_for(state_poll_interval);
  }
}

}  // namespace

bool Instance_Controller::get_state(ACE_UINT16 instance_number, Instance_State& state) {
  return get_state(instance_name_of(instance_number), state);
}

bool Instance_Controller::get_state(const std::string& instance_name, Instance_State& state) {
  state = INSTANCE_STATE_UNKNOWN;
  if (!check_installed(sid_, instance_name)) return false;
  const Tool_Result asked = ask_sapcontrol(sid_, instance_name);
  const bool ended = asked.status.started && asked.status.signal == 0 && !asked.timed_out;
  if (ended && state_of_process_list(asked.status.code, state)) return true;
  // The start service may be down while HANA's own processes tell the state.
  const Tool_Result tree = run_hdb(sid_, instance_name, "info", state_limit);
  if (tree.status.success() && !tree.timed_out) {
    state = state_of_process_tree(tree.output, sid_, instance_name);
    return true;
  }
  D3_ERROR("Failed to get the state of HANA instance %C: sapcontrol %C; HDB info %C\n",
           generate_instance_manager_name(sid_, instance_name).c_str(), describe(asked).c_str(),
           describe(tree).c_str());
  return false;
}

bool Instance_Controller::start(const std::string& instance_name) {
  return hdb_action(instance_name, HDB_ACTION_START);
}

bool Instance_Controller::stop(const std::string& instance_name) { return hdb_action(instance_name, HDB_ACTION_STOP); }

bool Instance_Controller::restart(const std::string& instance_name) {
  return hdb_action(instance_name, HDB_ACTION_RESTART);
}

bool Instance_Controller::hdb_action(const std::string& instance_name, HDB_ACTION action) {
  // A restart is the two of them, so that it is seen whether the instance really was down.
  if (action == HDB_ACTION_RESTART)
    return hdb_action(instance_name, HDB_ACTION_STOP) && hdb_action(instance_name, HDB_ACTION_START);
  if (action != HDB_ACTION_START && action != HDB_ACTION_STOP) {
    D3_ERROR("HANA instances have no action %d\n", static_cast<int>(action));
    return false;
  }
  if (!check_installed(sid_, instance_name)) return false;
  const Action& wanted = action == HDB_ACTION_START ? start_action : stop_action;
  const std::string name = generate_instance_manager_name(sid_, instance_name);
  const Tool_Result result = run_hdb(sid_, instance_name, wanted.verb, wanted.command_limit);
  if (!result.status.success() || result.timed_out) {
    D3_ERROR("Failed to %C HANA instance %C: HDB %C %C\n", wanted.verb, name.c_str(), wanted.verb,
             describe(result).c_str());
    return false;
  }
  return wait_for_state(*this, instance_name, name, wanted);
}

bool Instance_Controller::get_instance_dir(const std::string& instance_name, std::string& dir, bool check) {
  if (!is_sid(sid_) || !is_instance_name(instance_name)) {
    D3_ERROR("'%C' is not a HANA instance of a system '%C'\n", platform::cut_for_log(instance_name).c_str(),
             platform::cut_for_log(sid_).c_str());
    return false;
  }
  const std::string found = instance_directory(sid_, instance_name);
  if (check && !platform::is_directory(found.c_str())) {
    D3_ERROR("The directory '%C' of HANA instance %C does not exist\n", found.c_str(), instance_name.c_str());
    return false;
  }
  dir = found;
  return true;
}

}  // namespace sap_hana
