// What HANA's backup catalog, backupd and backup.log tell of earlier backups and recoveries.

#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>
#include <utility>
#include <vector>

#include "agent/backupd_client/read_first_catalog.h"
#include "hana/common/environ_getter.h"
#include "hana/common/hana_paths.h"
#include "hana/common/system_control.h"
#include "hana/job/backup_executor_basic.h"
#include "job/job.h"
#include "platform/clock.h"
#include "platform/file_root.h"
#include "platform/files.h"
#include "platform/log.h"
#include "scrt/exponential_backoff_iterator.h"
#include "scrt/http_query_string_builder.h"
#include "scrt/numbers.h"
#include "scrt/path_t.h"
#include "scrt/time_text.h"

namespace {

/// A longer clause is cut, as it always was.
constexpr std::size_t database_clause_bytes = 64;

/// How hdbsql prints a NULL.
constexpr const char* null_value = "?";
constexpr const char* state_running = "running";

constexpr const char* restore_sets_path = "/q5/r/v2/sets/restore/sets";
constexpr int restore_sets_retries = 10;
constexpr int restore_sets_timeout_seconds = 10;

constexpr const char* backup_log_name = "backup.log";
constexpr const char* recovery_mark = "RECOVER DATA started";
/// Date, time and zone at the start of a line of backup.log.
constexpr std::size_t log_time_bytes = 25;

/// HANA's word for a kind of data backup, null for another kind of job.
const char* entry_type_name(Job_Definition_Subtype type) {
  switch (type) {
    case JOB_DEFINITION_SUBTYPE_FULL:
      return "complete data backup";
    case JOB_DEFINITION_SUBTYPE_INCREMENTAL:
      return "incremental data backup";
    case JOB_DEFINITION_SUBTYPE_CUMULATIVE:
      return "differential data backup";
    default:
      return nullptr;
  }
}

/// A storage that still has the set in some state keeps it usable.
bool is_held_by_a_storage(const json_spirit::Object& set) {
  json_spirit::Array storages;
  json_spirit::object_get(set, "storages", storages);
  for (const json_spirit::Value& storage : storages) {
    json_spirit::Array state;
    if (storage.is_object() && json_spirit::object_get(storage.get_obj(), "state", state) && !state.empty())
      return true;
  }
  return false;
}

/// The time text of the last recovery that a backup.log tells of. False when it cannot be opened, or not be
/// read to its end: what was not read might tell of a later one.
bool find_last_recovery(const std::string& path, std::optional<std::string>& time_text) {
  std::ifstream log(platform::File_Root::current().real(path));
  if (!log) return false;
  for (std::string line; std::getline(log, line);)
    if (line.find(recovery_mark) != std::string::npos) time_text = line.substr(0, log_time_bytes);
  return !log.bad();
}

}  // namespace

namespace sap_hana {

const char* Backup_Executor_Basic::catalog_schema() const { return mdc_ ? "SYS_DATABASES" : "SYS"; }

void Backup_Executor_Basic::query(const char* sql, Attempt_Needs needs, HDBSQL_General_Text_Handler& handler) const {
  for (const unsigned delay_seconds : exponential_backoff(1, MAX_RETRY, MAX_INTERVAL, false)) {
    const bool done = hdbsql_.execute(sql, &handler, job_.log_msg_callback());
    if (done && (needs == Attempt_Needs::success || !handler.get_values().empty())) return;
    platform::Clock::current().sleep_for(std::chrono::seconds(delay_seconds));
  }
}

bool Backup_Executor_Basic::get_last_backup_id(const std::string& database, const Job_Definition_Subtype& type,
                                               ACE_UINT64& backup_id, bool successful_only) const {
  const char* const entry_type = entry_type_name(type);
  if (entry_type == nullptr) {
    D3_ERROR("Unknown job subtype '%s'\n", job_def_subtype_to_string(type));
    return false;
  }
  char database_clause[database_clause_bytes] = "";
  if (mdc_) std::snprintf(database_clause, sizeof database_clause, "and c.DATABASE_NAME='%s'", database.c_str());
  char sql[statement_bytes];
  std::snprintf(sql, sizeof sql,
                "select c.BACKUP_ID as BACKUP_ID from %s.M_BACKUP_CATALOG as c join %s.M_BACKUP_CATALOG_FILES as f"
                " on c.BACKUP_ID = f.BACKUP_ID where lower(ENTRY_TYPE_NAME)='%s' and"
                " lower(DESTINATION_TYPE_NAME)='backint'  %s %s order by c.BACKUP_ID desc limit 1",
                catalog_schema(), catalog_schema(), entry_type, successful_only ? "and STATE_NAME='successful'" : "",
                database_clause);
  backup_id = 0;
  HDBSQL_General_Text_Handler handler;
  query(sql, Attempt_Needs::success, handler);
  std::string text;
  return last_value(handler, "BACKUP_ID", text) && parse_uint64(text, backup_id);
}

bool Backup_Executor_Basic::get_last_full_backup_id(const std::string& database, ACE_UINT64& backup_id,
                                                    bool successful_only) const {
  return get_last_backup_id(database, JOB_DEFINITION_SUBTYPE_FULL, backup_id, successful_only);
}

bool Backup_Executor_Basic::get_last_full_backup_state(const std::string& database, ACE_UINT64& backup_id,
                                                       std::string& state) const {
  return get_last_full_backup_id(database, backup_id, false) && get_job_state(backup_id, state);
}

bool Backup_Executor_Basic::get_backup_catalog_time(ACE_UINT64 backup_id, std::time_t& start, std::time_t& end) const {
  char sql[statement_bytes];
  std::snprintf(sql, sizeof sql,
                "select TO_VARCHAR(UTC_START_TIME, 'YYYY-MM-DD HH24:MI:SS') as START_TIME,"
                " TO_VARCHAR(UTC_END_TIME, 'YYYY-MM-DD HH24:MI:SS') as END_TIME"
                " from %s.M_BACKUP_CATALOG where BACKUP_ID=%llu",
                catalog_schema(), static_cast<unsigned long long>(backup_id));
  HDBSQL_General_Text_Handler handler;
  query(sql, Attempt_Needs::success, handler);
  std::string start_text;
  std::string end_text;
  if (!last_value(handler, "START_TIME", start_text) || !last_value(handler, "END_TIME", end_text)) return false;
  if (start_text == null_value || end_text == null_value) return false;
  return iso8601_to_posix_time(start_text.c_str(), start) && iso8601_to_posix_time(end_text.c_str(), end);
}

bool Backup_Executor_Basic::get_job_state(ACE_UINT64 backup_id, std::string& state) const {
  if (backup_id == 0) {
    D3_ERROR("Failed to get job state, database_backup_id is 0\n");
    return false;
  }
  state.clear();
  char sql[statement_bytes];
  std::snprintf(sql, sizeof sql, "select STATE_NAME, SYS_END_TIME from %s.M_BACKUP_CATALOG where BACKUP_ID=%lu",
                catalog_schema(), static_cast<unsigned long>(backup_id));
  HDBSQL_General_Text_Handler handler;
  query(sql, Attempt_Needs::rows, handler);
  std::string end_text;
  std::string state_name;
  if (!last_value(handler, "SYS_END_TIME", end_text) || !last_value(handler, "STATE_NAME", state_name)) return false;
  state = end_text == null_value ? state_running : state_name;
  return true;
}

bool Backup_Executor_Basic::get_backup_sets(const std::string& database, ACE_UINT64 database_backup_id,
                                            json_spirit::Object& set) const {
  std::string query_string;
  HTTP_Query_String_Builder_T builder(std::back_inserter(query_string));
  builder("resource_uuid", src_->id())("database", database)("order", "desc")("limit", "1")("sort", "id")("module",
                                                                                                          "hana");
  if (database_backup_id != 0) builder("database_backup_id", database_backup_id);
  char url[statement_bytes];
  std::snprintf(url, sizeof url, "%s?%s", restore_sets_path, query_string.c_str());

  json_spirit::Value value;
  if (!read_first_catalog(url, value, restore_sets_retries, restore_sets_timeout_seconds) || !value.is_object()) {
    const std::string answer = platform::cut_for_log(json_spirit::dump_json_for_log(value));
    D3_ERROR("Failed to get %s backup sets, %s\n", database.c_str(), answer.c_str());
    return false;
  }
  set = std::move(value.get_obj());
  set["state"] = is_held_by_a_storage(set);
  return true;
}

bool Backup_Executor_Basic::get_last_restore(const std::string& database, std::time_t& restore_time) const {
  restore_time = 0;
  std::vector<std::string> directories;
  if (!Environ_Getter::instance()->get_trace_dirs(sid_, directories)) {
    D3_ERROR("Failed to get trace directory\n");
    return false;
  }
  const bool system_database = System_Controller(sid_).is_system_database(database);
  for (const std::string& directory : directories) {
    const std::string folder = system_database ? directory : scrt::join_path(directory, database_folder(database));
    const std::string path = scrt::join_path(folder, backup_log_name);
    if (!platform::is_regular_file(path.c_str())) continue;
    std::optional<std::string> time_text;
    if (!find_last_recovery(path, time_text)) {
      D3_ERROR("Failed to open HANA backup file '%s'\n", path.c_str());
      return false;
    }
    if (!time_text) continue;
    std::time_t recovered = 0;
    if (!hana_time_to_posix_time(time_text->c_str(), recovered)) {
      D3_ERROR("Failed to handle time string '%s'\n", time_text->c_str());
      return false;
    }
    if (recovered > restore_time) restore_time = recovered;
  }
  return true;
}

}  // namespace sap_hana
