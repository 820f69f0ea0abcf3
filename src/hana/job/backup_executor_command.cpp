// The BACKUP DATA statement: its kind, its text, the record that the Backint agent reads, and its run.

#include <cstdio>

#include "hana/common/environ_getter.h"
#include "hana/common/hdbsql_error_msg_handler.h"
#include "hana/job/backup_executor.h"
#include "hana/job/io_control.h"
#include "job/job.h"
#include "job/job_definition.h"
#include "platform/log.h"
#include "scrt/time_text.h"

namespace {

/// HANA's word for a kind, with the blank behind it; a full backup has none.
const char* kind_word(Job_Definition_Subtype type) {
  switch (type) {
    case JOB_DEFINITION_SUBTYPE_INCREMENTAL:
      return "INCREMENTAL ";
    case JOB_DEFINITION_SUBTYPE_CUMULATIVE:
      return "DIFFERENTIAL ";
    default:
      return "";
  }
}

/// Why a kind was lifted to full, as the backup set tells it.
constexpr const char* lifted_no_full_backup = "no full backup";
constexpr const char* lifted_pool_changed = "pool changed";
constexpr const char* lifted_restored = "restored";

}  // namespace

namespace sap_hana {

bool Backup_Executor::generate_backup_cmd(Job_Definition_Subtype type, const std::string& database,
                                          const std::string& uuid, std::string& cmd) const {
  if (type == JOB_DEFINITION_SUBTYPE_NONE) return false;
  const std::string target = mdc_ && !database.empty() ? "FOR " + database : std::string();
  char statement[statement_bytes];
  std::snprintf(statement, sizeof statement, "BACKUP DATA %s %s USING BACKINT('%s') TOOLOPTION 'job_uuid=%s;'",
                kind_word(type), target.c_str(), uuid.c_str(), uuid.c_str());
  cmd = statement;
  return true;
}

bool Backup_Executor::generate_backint_conf(const std::string& uuid, const std::string& database) {
  if (uuid.empty()) {
    D3_ERROR("Uuid is empty\n");
    return false;
  }
  Backint_Backup_Job_Info record;
  record.database_backup_id = 0;  // HANA gives it when the backup runs
  record.uuid = uuid;
  record.host_uuid = def_.host_id();
  record.job_act_id = evt_handler_.job_act_id();
  record.type = job_def_subtype_to_string(job_type_);
  record.location = tgt_.location();
  record.database = database;
  const char* const compression = compression_value_to_name(compression_);
  record.compression = compression == nullptr ? "" : compression;
  record.compression_level = compression_level_;
  record.sid = sid_;
  record.pool_uuid = tgt_.id();
  if (!Environ_Getter::instance()->get_landscape_id(sid_.c_str(), record.landscape_id)) {
    D3_ERROR("Failed to get landscape ID\n");
    return false;
  }
  record.extended_attrs["io_ctl"] = io_control(def_);
  return backint_helper_.add_job(record);
}

bool Backup_Executor::update_job_type(const Backup_Source_Collector::Database_Info& database) {
  lift_reason_ = "";
  if (job_type_ != JOB_DEFINITION_SUBTYPE_INCREMENTAL && job_type_ != JOB_DEFINITION_SUBTYPE_CUMULATIVE) return true;
  json_spirit::Object full_set;
  if (!find_full_set(database.database, full_set)) {
    lift_to_full(lifted_no_full_backup);
    D3_INFO("Failed to get full backup, set job type to full\n");
  } else if (!is_on_target_pool(full_set)) {
    lift_to_full(lifted_pool_changed);
    D3_INFO("Storage pool is changed, set job type to full\n");
  } else if (was_restored_since(database.database, full_set)) {
    lift_to_full(lifted_restored);
    D3_INFO("Database has been restored, set job type to full\n");
  }
  return true;
}

void Backup_Executor::lift_to_full(const char* reason) {
  job_type_ = JOB_DEFINITION_SUBTYPE_FULL;
  lift_reason_ = reason;
}

bool Backup_Executor::find_full_set(const std::string& database, json_spirit::Object& set) {
  bool usable = false;
  return get_last_full_backup_id(database, last_full_backup_id_, true) &&
         get_backup_sets(database, last_full_backup_id_, set) && json_spirit::object_get(set, "state", usable) &&
         usable;
}

bool Backup_Executor::is_on_target_pool(const json_spirit::Object& set) const {
  std::string pool_uuid;
  return json_spirit::object_get(set, "pool_uuid", pool_uuid) && pool_uuid == tgt_.id();
}

bool Backup_Executor::was_restored_since(const std::string& database, const json_spirit::Object& set) const {
  std::string start_text;
  std::time_t start = 0;
  std::time_t restored = 0;
  // What cannot be told counts as restored: a full backup is always safe.
  if (!json_spirit::object_get(set, "start_time", start_text) || !iso8601_to_posix_time(start_text.c_str(), start))
    return true;
  return !get_last_restore(database, restored) || restored > start;
}

bool Backup_Executor::execute_backup_cmd(const char* cmd, bool& ok) {
  HDBSQL_Error_Msg_Handler handler;
  ok = hdbsql_.execute(cmd, &handler, job_.log_msg_callback());
  if (!ok && handler.is_canceled()) job_.state(JOB_STATE_CANCELING);
  return ok;
}

}  // namespace sap_hana
