// Which node of a resource runs a job, and which others there are.

#include <algorithm>
#include <array>
#include <exception>
#include <string_view>

#include "agent/backupd_client/json_rpc_forward.h"
#include "hana/common/instance_control.h"
#include "hana/common/name_server_config_parser.h"
#include "hana/common/replication_state_getter.h"
#include "hana/job/backup_executor_basic.h"
#include "job/job_definition.h"
#include "platform/log.h"

namespace {

constexpr const char* control_method = "hana.instance.control";

/// Replication modes of a site that receives, so that the other site is the one to back up.
constexpr std::array<std::string_view, 3> secondary_modes = {"sync", "async", "syncmem"};

/// A log backup of a resource on fewer hosts needs no word from the others.
constexpr std::size_t cluster_size_at_least = 2;

bool is_secondary(const std::string& sid) {
  sap_hana::Replication_State_Getter::Replication_State replication;
  // A system whose replication cannot be told counts as one without.
  (void)sap_hana::Replication_State_Getter(sid).get_state(replication);
  return std::find(secondary_modes.begin(), secondary_modes.end(), replication.mode) != secondary_modes.end();
}

const char* state_words(sap_hana::Instance_Controller::Instance_State state) {
  switch (state) {
    case sap_hana::Instance_Controller::INSTANCE_STATE_STOPPED:
      return "stopped";
    case sap_hana::Instance_Controller::INSTANCE_STATE_RUNNING:
      return "running";
    default:
      return "neither running nor stopped, see its process list";
  }
}

/// Asks the agent of a host for the state of its instance. False when there is no answer with a state.
bool get_remote_state(const std::string& host_uuid, const json_spirit::Object& request, long& state) {
  try {
    json_spirit::Value answer;
    return json_rpc_forward(host_uuid, request, control_method, &answer, json_spirit::obj_type) &&
           json_spirit::object_get(answer.get_obj(), "state", state);
  } catch (const std::exception& error) {
    D3_WARNING("Whether the system runs on another host is not known: %C\n", error.what());
    return false;
  }
}

}  // namespace

namespace sap_hana {

bool Backup_Executor_Basic::is_active(const Action_Options*) {
  if (!Resource_Info_Getter(src_->id()).base_info(sid_, instance_name_, instance_mgr_name_, instance_number_)) {
    D3_ERROR("Failed to get resource info to check if the node is active\n");
    return false;
  }
  if (is_secondary(sid_)) return false;
  Instance_Controller::Instance_State state = Instance_Controller::INSTANCE_STATE_UNKNOWN;
  if (!Instance_Controller(sid_).get_state(instance_number_, state)) return false;
  if (state == Instance_Controller::INSTANCE_STATE_RUNNING) return true;
  D3_INFO("HANA instance %C is not running on this host: it is %C\n", instance_mgr_name_.c_str(), state_words(state));
  if (def_.subtype() != JOB_DEFINITION_SUBTYPE_ONDEMAND) return false;
  return may_run_log_backup();
}

bool Backup_Executor_Basic::may_run_log_backup() const {
  Instances_Info instances;
  if (!Resource_Info_Getter(src_->id()).get_instances_info(instances)) {
    D3_ERROR("Failed to get cluster instances to check if the node is active\n");
    return false;
  }
  if (instances.size() < cluster_size_at_least) return true;
  bool master = false;
  if (!Name_Server_Config_Parser(sid_).is_active_master(master) || !master) return false;
  return !runs_on_another_node(instances);
}

bool Backup_Executor_Basic::runs_on_another_node(const Instances_Info& instances) const {
  const json_spirit::Object request{{"action", "state"}, {"sid", sid_}, {"instance_name", instance_name_}};
  for (const Resource_Info_Getter::Instance_Info& instance : instances) {
    long state = Instance_Controller::INSTANCE_STATE_UNKNOWN;
    if (!get_remote_state(instance.host_uuid, request, state)) {
      D3_ERROR("Failed to get state to check if the node is active\n");
      continue;
    }
    if (state == Instance_Controller::INSTANCE_STATE_RUNNING) return true;
  }
  return false;
}

bool Backup_Executor_Basic::get_cluster_instances(Instances_Info& instances) {
  if (!Resource_Info_Getter(src_->id()).get_instances_info(instances)) {
    D3_ERROR("Failed to get cluster instances\n");
    return false;
  }
  const auto here = std::find_if(instances.begin(), instances.end(),
                                 [this](const auto& instance) { return instance.host_uuid == def_.host_id(); });
  if (here != instances.end()) instances.erase(here);
  return true;
}

}  // namespace sap_hana
