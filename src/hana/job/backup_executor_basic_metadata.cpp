// The backup set of one database: begun before the backup, completed after it, committed.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <limits>

#include "agent/backupd_client/catalog_operator.h"
#include "hana/common/system_instance_lister.h"
#include "hana/job/backup_executor_basic.h"
#include "job/job.h"
#include "job/job_definition.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "scrt/exponential_backoff_iterator.h"
#include "scrt/time_text.h"
#include "scrt/uuid.h"

namespace {

constexpr std::uint64_t unknown_number = std::numeric_limits<std::uint64_t>::max();

/// Name under which HANA hands its backup catalog to Backint.
constexpr const char* catalog_backup_name = "log_backup_0_0_0_0";
constexpr const char* set_type_log = "log";
constexpr const char* set_type_catalog = "catalog";

constexpr const char* state_successful = "successful";

/// The files of a backup are waited for with pauses that grow without a bound.
constexpr unsigned no_cap = std::numeric_limits<unsigned>::max();

/// Deliberate: a set begins one second after the time that HANA gives as its start.
constexpr std::time_t begin_after_start_seconds = 1;

constexpr int default_retries = -1;

/// What the newest set of a database tells of its lifeline.
struct Last_Set {
  bool found = false;
  bool has_start = false;
  bool has_lifeline = false;
  bool start_is_time = false;
  std::time_t start = 0;
  std::string lifeline;

  [[nodiscard]] bool is_followed(std::time_t restore_time) const {
    return found && has_start && has_lifeline && start_is_time && restore_time <= start;
  }
};

Last_Set read_last_set(const json_spirit::Object& set) {
  Last_Set last;
  last.found = true;
  std::string start;
  last.has_start = json_spirit::object_get(set, "start_time", start);
  last.has_lifeline = json_spirit::object_get(set, "lifeline", last.lifeline);
  last.start_is_time = last.has_start && iso8601_to_posix_time(start.c_str(), last.start);
  return last;
}

/// Why a set does not follow the last one.
std::string reason_for_new_lifeline(const Last_Set& last, std::time_t restore_time) {
  if (!last.found) return "failed to get last backup job info";
  if (!last.has_start) return "failed to get start time from last backup job info";
  if (!last.has_lifeline) return "failed to get lifeline from last backup job info";
  if (!last.start_is_time) return "failed to transform posix time";
  constexpr std::size_t reason_bytes = 128;
  char reason[reason_bytes];
  std::snprintf(reason, sizeof reason, "restore time is %ld, backup time is %ld", static_cast<long>(restore_time),
                static_cast<long>(last.start));
  return reason;
}

}  // namespace

namespace sap_hana {

void Backup_Executor_Basic::init_metadata(HANA_Backup_Set& set) {
  set.uuid = make_uuid();
  set.job_name = def_.name();
  set.job_id = def_.id();
  set.job_act_id = evt_handler_.job_act_id();
  set.job_uid = def_.uid();
  set.host_uuid = def_.host_id();
  set.resource_uuid = src_->id();
  set.agent = def_.agent();
  set.type = job_type_ == JOB_DEFINITION_SUBTYPE_ONDEMAND ? set_type_log : job_def_subtype_to_string(job_type_);
  set.sid = sid_;
  set.instance_number = instance_number_;
  System_Instance_Info info;
  // An instance that cannot be read leaves the version empty.
  (void)System_Instance_Lister().list(info, sid_, instance_name_);
  set.system_version = info.system_info.version;
  set.instance_name = instance_name_;
  set.creation_time = platform::Clock::current().wall_seconds();
  set.expiration_id = unknown_number;
  set.sequence_id = unknown_number;
}

bool Backup_Executor_Basic::update_metadata(HANA_Backup_Set& set, const std::string& uuid) {
  // A record that cannot be read leaves the name empty and the id 0.
  Backint_Backup_Job_Info job_record;
  (void)backint_helper_.get_job(uuid.c_str(), job_record);
  std::list<Backup_File_Info> files;
  if (!collect_files(uuid, files)) return false;

  set.database = job_record.database;
  set.database_backup_id = job_record.database_backup_id;
  lifeline_lock_.acquire(src_->id(), set.database);
  const bool new_lifeline = choose_lifeline(set);
  choose_incarnation(new_lifeline, set);
  // A resource whose id is no uuid has no minor ids.
  (void)compute_minor_resource_id(set.resource_uuid, set.database, set.minor_resource_id);
  set.source_name = set.database;
  add_files(files, set);
  set_times(set);
  return true;
}

bool Backup_Executor_Basic::collect_files(const std::string& uuid, std::list<Backup_File_Info>& files) {
  if (!wait_for_files(uuid, files)) {
    D3_ERROR("Failed to get backup files\n");
    return false;
  }
  // The set takes over what the record stood for; one that stays is cleaned up by backupd.
  (void)backint_helper_.remove_job(uuid.c_str());
  if (files.empty()) {
    D3_ERROR("Backup files is empty\n");
    return false;
  }
  return true;
}

bool Backup_Executor_Basic::wait_for_files(const std::string& uuid, std::list<Backup_File_Info>& files) {
  for (const unsigned delay_seconds : exponential_backoff(1, MAX_RETRY, no_cap, false)) {
    if (!backint_helper_.get_job_files(uuid.c_str(), files)) return false;
    if (!files.empty()) break;
    platform::Clock::current().sleep_for(std::chrono::seconds(delay_seconds));
  }
  return true;
}

bool Backup_Executor_Basic::choose_lifeline(HANA_Backup_Set& set) const {
  std::time_t restore_time = 0;
  if (!get_last_restore(set.database, restore_time)) {
    D3_ERROR("Failed to get latest restore info\n");
    restore_time = 0;
  }
  Last_Set last;
  if (json_spirit::Object newest; get_backup_sets(set.database, 0, newest)) last = read_last_set(newest);
  if (last.is_followed(restore_time)) {
    set.lifeline = last.lifeline;
    return false;
  }
  set.lifeline = make_uuid();
  D3_INFO("Update lifeline: %s\n", reason_for_new_lifeline(last, restore_time).c_str());
  return true;
}

void Backup_Executor_Basic::choose_incarnation(bool new_lifeline, HANA_Backup_Set& set) {
  incarnation_.clear();
  if (!new_lifeline && job_type_ != JOB_DEFINITION_SUBTYPE_FULL) {
    find_last_full_backup(set.database);
    json_spirit::Object full;
    if (last_full_backup_id_ != 0 && get_backup_sets(set.database, last_full_backup_id_, full))
      json_spirit::object_get(full, "incarnation", incarnation_);
  }
  if (incarnation_.empty()) incarnation_ = set.uuid;
  set.incarnation = incarnation_;
}

void Backup_Executor_Basic::find_last_full_backup(const std::string& database) {
  std::string state;
  if (last_full_backup_id_ != 0 && get_job_state(last_full_backup_id_, state) && state == state_successful) return;
  // Without one the id is 0, and the set begins an incarnation of its own.
  (void)get_last_full_backup_id(database, last_full_backup_id_, true);
}

void Backup_Executor_Basic::add_files(const std::list<Backup_File_Info>& files, HANA_Backup_Set& set) {
  for (const Backup_File_Info& file : files) {
    if (file.filename == catalog_backup_name) set.type = set_type_catalog;
    set.add_file({file.extern_backup_id, file.origin_path, file.filename, file.size, file.source_type,
                  file.storage_path, file.storage_size});
    set.add_piece({file.storage_path, file.size});
    set.total_storage_size += file.storage_size;
    set.total_size += file.size;
    Job_Activity::add(act_.set_storage_size, file.storage_size);
    Job_Activity::add(act_.size, file.size);
    Job_Activity::add(act_.set_size, file.size);
  }
  set.add_storage({tgt_.id(), set.total_storage_size});
}

void Backup_Executor_Basic::set_times(HANA_Backup_Set& set) const {
  const std::time_t now = platform::Clock::current().wall_seconds();
  set.update_time = now;
  set.begin_time = now;
  set.end_time = now;
  std::time_t start = 0;
  std::time_t end = 0;
  if (!get_backup_catalog_time(set.database_backup_id, start, end)) {
    D3_ERROR("Failed to update job time by database\n");
    return;
  }
  set.begin_time = start + begin_after_start_seconds;
  set.end_time = end;
}

bool Backup_Executor_Basic::save_metadata(HANA_Backup_Set& set) {
  const std::size_t retry_seconds =
      std::min<std::size_t>(def_.max_seconds_retry(), static_cast<std::size_t>(std::numeric_limits<int>::max()));
  const bool committed = Catalog_Operator(default_retries, static_cast<int>(retry_seconds)).commit(set, true);
  lifeline_lock_.release();
  if (committed) return true;
  D3_ERROR("Failed to write HANA catalog to backupd\n");
  return false;
}

}  // namespace sap_hana
