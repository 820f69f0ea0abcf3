// A stop from outside: cancels in HANA what runs, waits for its end, and removes what the Backint agent had stored of
// it. Works on HANA's catalog alone; the executor that runs the backup is not touched.

#include <chrono>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "agent/backupd_client/client_io_ex.h"
#include "agent/backupd_client/get_pool_info.h"
#include "hana/common/environ_getter.h"
#include "hana/job/backup_executor.h"
#include "job/job_definition.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "scrt/exponential_backoff_iterator.h"

namespace {

constexpr const char* state_running = "running";
constexpr const char* state_cancel_pending = "cancel pending";
constexpr const char* state_canceled = "canceled";
constexpr const char* state_failed = "failed";

/// The schedule ends by the time that was waited, not by a number of attempts.
constexpr unsigned without_end = static_cast<unsigned>(-1);

bool is_ending(const std::string& state) { return state == state_running || state == state_cancel_pending; }

}  // namespace

namespace sap_hana {

bool Backup_Executor::stop() {
  std::string database;
  if (stop_i(database)) return true;
  raise_alert(ALERT_STOP_BACKUP, ALERT_FLAGS_NONE, {{"database", database}});
  D3_ERROR("Failed to stop HANA backup job\n");
  return false;
}

bool Backup_Executor::stop_i(std::string& database) {
  if (src_ == nullptr) {
    D3_EMERGENCY("Unexpected error in %N:%l, src_ is NULL:\n%?\n");
    return false;
  }
  if (!init_system_info()) {
    D3_ERROR("Failed to initialize system info to stop HANA job\n");
    return false;
  }
  Backup_Source_Collector collector(sid_);
  if (!collect_databases_to_stop(collector) || !bind_hdbsql_to_stop()) return false;
  std::string landscape_id;
  // Without one nothing can be found on the pool: an empty segment of a path is refused there.
  (void)Environ_Getter::instance()->get_landscape_id(sid_.c_str(), landscape_id);
  Canceled_Backups canceled;
  if (!cancel_databases(collector.get(), database, canceled)) return false;
  if (canceled.empty()) return false;
  Client_IO_Options options;
  Pool_Info pool;
  if (!get_target_pool(pool, options)) return false;
  Client_IO_Ex client(options);
  if (!client.connect(pool.url)) {
    D3_ERROR("Failed to connect to %s\n", pool.url.c_str());
    return false;
  }
  return clean_up(canceled, landscape_id, client);
}

bool Backup_Executor::collect_databases_to_stop(Backup_Source_Collector& collector) {
  if (collector.collect(*src_) && !collector.get().empty()) return true;
  raise_alert(ALERT_COLLECT_SOURCE);
  D3_ERROR("Failed to collect backup entries to stop job\n");
  return false;
}

bool Backup_Executor::bind_hdbsql_to_stop() {
  if (init_hdbsql()) return true;
  raise_alert(ALERT_INIT_HDBSQL);
  D3_ERROR("Failed to init hdbsql for %s %s\n", sid_.c_str(), instance_name_.c_str());
  return false;
}

bool Backup_Executor::cancel_databases(const Backup_Source_Collector::Databases& databases, std::string& database,
                                       Canceled_Backups& canceled) {
  for (const Backup_Source_Collector::Database_Info& entry : databases) {
    if (entry.database.empty()) continue;
    database = entry.database;
    if (!cancel_if_running(entry, canceled)) return false;
  }
  return true;
}

bool Backup_Executor::cancel_if_running(const Backup_Source_Collector::Database_Info& entry,
                                        Canceled_Backups& canceled) {
  const char* const database = entry.database.c_str();
  // The kind that the backup itself used: judged from what was before it.
  job_type_ = def_.subtype();
  if (!update_job_type(entry)) {
    D3_ERROR("Failed to update job info\n");
    return false;
  }
  ACE_UINT64 id = 0;
  if (!get_last_backup_id(entry.database, job_type_, id, false)) {
    D3_ERROR("Failed to get latest %s backup id of %s\n", job_def_subtype_to_string(job_type_), database);
    return false;
  }
  std::string state;
  if (!get_job_state(id, state) || state != state_running) {
    D3_INFO("Skip handling database %s backup job with backup id %Q, state is %s\n", database, id, state.c_str());
    return true;
  }
  D3_INFO("Try to stop database %s backup job with backup id %Q\n", database, id);
  if (!cancel_database_job(database, id)) {
    D3_ERROR("Failed to cancel backup job for database %s with backup id %Q\n", database, id);
    return false;
  }
  canceled[entry.database] = id;
  return true;
}

bool Backup_Executor::cancel_database_job(const char* database, ACE_UINT64 backup_id) {
  std::string sql = "BACKUP CANCEL ";
  if (mdc_) sql += "FOR " + std::string(database) + " ";
  sql += std::to_string(backup_id);
  return hdbsql_.execute(sql, ACE_Log_Msg_Callback_var());
}

bool Backup_Executor::get_target_pool(Pool_Info& pool, Client_IO_Options& options) const {
  if (!get_pool_info(tgt_.id(), nullptr, pool, true, 0, nullptr, true, nullptr, nullptr, false)) {
    D3_ERROR("Skip removing the backup set because there was a failure to get pool information.");
    return false;
  }
  set_options_by_host(options);
  if (set_options_by_pool(options, pool)) return true;
  D3_ERROR("Failed to set client io options by pool info\n");
  return false;
}

bool Backup_Executor::clean_up(const Canceled_Backups& canceled, const std::string& landscape_id,
                               Client_IO_Ex& client) const {
  for (const auto& [database, id] : canceled) {
    std::string state;
    if (!wait_for_end(database, id, state)) return false;
    if (state != state_canceled && state != state_failed) continue;
    D3_INFO("Stop database %s backup job with backup id %Q successfully\n", database.c_str(), id);
    char directory[statement_bytes];
    std::snprintf(directory, sizeof directory, "%s/%s/%s/%llu", def_.host_id().c_str(), landscape_id.c_str(),
                  database.c_str(), static_cast<unsigned long long>(id));
    remove_dataset(directory, client);
  }
  return true;
}

bool Backup_Executor::wait_for_end(const std::string& database, ACE_UINT64 id, std::string& state) const {
  int attempt = 1;
  Exponential_Backoff_Iterator delay(1, without_end, QUERY_INTERVAL, true);
  for (;;) {
    if (!get_job_state(id, state)) {
      D3_ERROR("Failed to get state of backup job %Q\n", id);
      return false;
    }
    if (!is_ending(state)) return true;
    if (delay.cumulation() >= QUERY_TIMEOUT || delay.exhausted()) {
      // Left as it is: HANA may still write it.
      D3_INFO("Failed to stop database %s backup job with backup id %Q, state is %s\n", database.c_str(), id,
              state.c_str());
      return true;
    }
    D3_INFO("Retry(%d) %N:%l at %u second(s) later.\n", attempt, *delay);
    platform::Clock::current().sleep_for(std::chrono::seconds(*delay));
    ++attempt;
    ++delay;
  }
}

void Backup_Executor::remove_dataset(const std::string& directory, Client_IO_Ex& client) {
  std::vector<Pool_Entry> entries;
  if (!client.get_dir(directory, entries)) {
    D3_ERROR("Failed to list directory %s, %s\n", directory.c_str(), client.error().c_str());
    return;
  }
  const auto remove = [&client](const std::string& path) {
    if (!client.remove(path)) D3_ERROR("Failed to remove dataset %s, %s\n", path.c_str(), client.error().c_str());
  };
  for (const Pool_Entry& entry : entries) remove(directory + "/" + entry.name);
  remove(directory);
}

}  // namespace sap_hana
