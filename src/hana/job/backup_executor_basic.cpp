#include "hana/job/backup_executor_basic.h"

#include "agent/backupd_client/common_http_session_factory.h"
#include "agent/instance/instance_manager.h"
#include "hana/common/system_control.h"
#include "job/job.h"
#include "job/job_alert.h"
#include "job/job_definition.h"
#include "platform/log.h"
#include "platform/secure_string.h"

namespace {

/// Kind of the accounts with which the agent logs on to HANA.
constexpr const char* account_type = "hana";

}  // namespace

namespace sap_hana {

Backup_Executor_Basic::Backup_Executor_Basic(Job& job)
    : Job_Executor_T(job),
      hdbsql_(""),
      job_type_(def_.subtype()),
      session_({}, JSON_HTTP_Session::DEFAULT_RETRYS, JSON_HTTP_Session::DEFAULT_RETRY_TIMEOUT) {
  if (opts_ == nullptr) return;
  compression_ = opts_->compression_;
  compression_level_ = opts_->compression_level_;
}

Backup_Executor_Basic::~Backup_Executor_Basic() = default;

bool Backup_Executor_Basic::execute_i(const Action_Options* options) {
  const char* const kind = job_type_ == JOB_DEFINITION_SUBTYPE_ONDEMAND ? "log" : "database";
  if (!init_system_info()) {
    D3_ERROR("Failed to initialize system info to backup HANA %s\n", kind);
    return false;
  }
  if (!execute_backup(options)) {
    D3_ERROR("Failed to backup HANA %s\n", kind);
    return false;
  }
  return true;
}

bool Backup_Executor_Basic::init_system_info() {
  if (!init_session() || !backint_helper_.init(session_)) {
    D3_ERROR("Failed to initialize backint helper.\n");
    return false;
  }
  const Resource_Info_Getter resource(src_->id());
  if (!resource.base_info(sid_, instance_name_, instance_mgr_name_, instance_number_)) {
    raise_alert(ALERT_RESOURCE_INFO);
    D3_ERROR("Failed to collect resource info.\n");
    return false;
  }
  mdc_ = System_Controller(sid_).is_multi_container();
  return true;
}

bool Backup_Executor_Basic::init_hdbsql() {
  Instance_Manager* const registry = Instance_Manager::instance();
  if (registry == nullptr) {
    D3_ERROR("Failed to get instance manager\n");
    return false;
  }
  std::string username;
  secure_string password;
  if (registry->get_account(account_type, instance_mgr_name_.c_str(), def_.uid().c_str(), username, password,
                            nullptr) != 0) {
    D3_ERROR("Failed to get username and password\n");
    return false;
  }
  if (!hdbsql_.init(sid_, instance_name_, "", username, password)) {
    D3_ERROR("Failed to init hdbsql\n");
    return false;
  }
  return true;
}

bool Backup_Executor_Basic::init_session() {
  session_.reset(Common_HTTP_Session_Factory::create(Common_HTTP_Session_Factory::SESSION_BACKUPD, nullptr, 0));
  if (session_) return true;
  D3_ERROR("Failed to connect to backupd\n");
  return false;
}

void Backup_Executor_Basic::raise_alert(Alert_Code code, Alert_Flags flags, const json_spirit::Object& parameters) {
  write_job_alert(&job_, ALERT_CLASS_HANA, code, flags, parameters, ALERT_LEVEL_JOB);
}

}  // namespace sap_hana
