#include "hana/instance/hana_instance_handler.h"

#include <cerrno>
#include <list>
#include <map>

#include "agent/instance/instance_manager.h"
#include "hana/common/hana_paths.h"
#include "hana/common/hdbsql_executor.h"
#include "hana/common/instance_control.h"
#include "hana/common/replication_state_getter.h"
#include "hana/common/system_control.h"
#include "hana/common/system_instance_lister.h"
#include "platform/log.h"

namespace {

constexpr const char* instance_type = "hana";
constexpr const char* state_error = "error";
constexpr const char* state_open = "open";
/// hdbsql's status command, which needs a logon.
constexpr const char* status_command = "\\s";

using namespace sap_hana;

std::shared_ptr<Instance> make_instance(const System_Instance_Info& info, bool multi_container) {
  const System_Base_Info& system = info.system_info;
  auto instance = std::make_shared<Instance>();
  instance->type = instance_type;
  instance->name = generate_instance_manager_name(system.sid, info.instance_name);
  instance->options = {{"sid", system.sid},
                       {"version", system.version},
                       {"instance_number", static_cast<int>(info.instance_number)},
                       {"instance_name", info.instance_name},
                       {"localhost", system.localhost},
                       {"dir_executable", info.dir_executable},
                       {"multi_container", multi_container}};
  return instance;
}

std::shared_ptr<Instance> find_instance(const char* name) {
  const Instance_Manager* manager = Instance_Manager::instance();
  return manager == nullptr ? nullptr : manager->find(instance_type, name);
}

bool is_secondary(const std::string& sid) {
  Replication_State_Getter::Replication_State replication;
  // A state that cannot be told is none of the secondary's.
  static_cast<void>(Replication_State_Getter(sid).get_state(replication));
  return replication.mode == "sync" || replication.mode == "async" || replication.mode == "syncmem";
}

bool is_open(const char* name) {
  if (name == nullptr || *name == '\0') return false;
  const std::shared_ptr<Instance> instance = find_instance(name);
  if (instance == nullptr) return false;
  std::string sid;
  unsigned short number = 0;
  if (!json_spirit::object_get(instance->options, "sid", sid) ||
      !json_spirit::object_get(instance->options, "instance_number", number))
    return false;
  Instance_Controller::Instance_State state = Instance_Controller::INSTANCE_STATE_UNKNOWN;
  if (!Instance_Controller(sid).get_state(number, state) || state != Instance_Controller::INSTANCE_STATE_RUNNING)
    return false;
  return !is_secondary(sid);
}

}  // namespace

HANA_Instance_Handler::~HANA_Instance_Handler() = default;

int HANA_Instance_Handler::probe_instances(Instances& instances) {
  std::list<System_Instance_Info> infos;
  if (!System_Instance_Lister().list(infos)) return -1;
  std::map<std::string, bool> multi_container;
  for (const System_Instance_Info& info : infos) {
    const std::string& sid = info.system_info.sid;
    auto known = multi_container.find(sid);
    if (known == multi_container.end())
      known = multi_container.emplace(sid, System_Controller(sid).is_multi_container()).first;
    const std::shared_ptr<Instance> instance = make_instance(info, known->second);
    instances[instance->name] = instance;
  }
  return 0;
}

std::string HANA_Instance_Handler::get_state(const char* name, std::string& state) {
  state = is_open(name) ? state_open : state_error;
  return state;
}

int HANA_Instance_Handler::logon(const char* instance_name, const char* username, const secure_string* password,
                                 const json_spirit::Object* /*options*/) {
  if (instance_name == nullptr || *instance_name == '\0') {
    D3_EMERGENCY("Unexpected error in %N:%l, instance_name is NULL or \"\":\n%?\n");
    return LOGON_FAILED;
  }
  if (username == nullptr && password == nullptr) return LOGON_OK;
  if (username == nullptr || *username == '\0') {
    D3_EMERGENCY("Unexpected error in %N:%l, username is NULL or \"\":\n%?\n");
    return LOGON_FAILED;
  }
  if (password == nullptr || password->empty()) {
    D3_EMERGENCY("Unexpected error in %N:%l, password is NULL or \"\":\n%?\n");
    return LOGON_FAILED;
  }
  if (find_instance(instance_name) == nullptr) return LOGON_OK;
  HDBSQL_Executor executor("");
  if (!executor.init(instance_name, "", username, *password)) {
    D3_ERROR("Failed to login HANA database instance '%s', failed to init hdbsql\n", instance_name);
    return LOGON_FAILED;
  }
  executor.time_limit(question_limit);
  if (executor.execute(status_command, nullptr)) return LOGON_OK;
  errno = LOGON_REFUSED;  // the log entry's error number
  D3_ERROR("Failed to login HANA database instance '%s'\n", instance_name);
  return LOGON_REFUSED;
}
