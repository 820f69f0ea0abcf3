// How far the backup has come that HANA makes while hdbsql is blocked.

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "hana/job/backup_executor.h"
#include "job/job.h"
#include "platform/clock.h"
#include "scrt/numbers.h"
#include "scrt/time_text.h"

namespace {

using Table = sap_hana::HDBSQL_General_Text_Handler;

constexpr ACE_UINT64 per_cent = 100;

/// Room for the filter with the longest name that HANA takes.
constexpr std::size_t filter_bytes = 1024;

/// `start`, or further towards `end` by the share of `size` that was transferred. More may have been transferred than
/// was announced: never beyond `end`.
int percentage(int start, int end, ACE_UINT64 transferred, ACE_UINT64 size) {
  const auto span = static_cast<ACE_UINT64>(end - start);
  const ACE_UINT64 gained = span * (transferred * per_cent / size) / per_cent;
  return gained > span ? end : start + static_cast<int>(gained);
}

/// The columns of M_BACKUP_PROGRESS by their place in a row.
struct Columns {
  std::size_t start_time = 0;
  std::size_t backup_size = 0;
  std::size_t transferred_size = 0;

  /// False when one is missing.
  [[nodiscard]] bool find(const Table::Key& key) {
    return find(key, "START_TIME", start_time) && find(key, "BACKUP_SIZE", backup_size) &&
           find(key, "TRANSFERRED_SIZE", transferred_size);
  }
  /// The row has a cell in each.
  [[nodiscard]] bool fit(const Table::Row& row) const {
    return std::max({start_time, backup_size, transferred_size}) < row.size();
  }

 private:
  [[nodiscard]] static bool find(const Table::Key& key, const char* name, std::size_t& column) {
    const auto found = key.find(name);
    if (found == key.end()) return false;
    column = static_cast<std::size_t>(found->second);
    return true;
  }
};

/// 0 for what is no number, as NULL: a service that has told no size yet does not hide the others'.
ACE_UINT64 number_in(const std::string& text) {
  ACE_UINT64 number = 0;
  return parse_uint64(text, number) ? number : 0;
}

/// Adds up the rows that began at `since` or later. False for a table without these columns.
bool sum_sizes(const Table& table, std::time_t since, ACE_UINT64& backup_size, ACE_UINT64& transferred_size) {
  Columns columns;
  if (!columns.find(table.get_key())) return false;
  for (const Table::Row& row : table.get_values()) {
    if (!columns.fit(row)) return false;
    std::time_t start = 0;
    if (!iso8601_to_posix_time(row[columns.start_time].c_str(), start) || start < since) continue;
    backup_size += number_in(row[columns.backup_size]);
    transferred_size += number_in(row[columns.transferred_size]);
  }
  return true;
}

}  // namespace

namespace sap_hana {

bool Backup_Executor::update_progress(const Thread_Helper& worker, const char* database, int start, int end) {
  evt_handler_.handle_progress(start);
  int current = start;
  int reported = start;
  const std::time_t since = platform::Clock::current().wall_seconds();
  while (worker.running()) {
    ACE_UINT64 size = 0;
    ACE_UINT64 transferred = 0;
    if (get_backup_size(database, size, transferred, since) && size != 0) {
      current = percentage(start, end, transferred, size);
      if (current != reported) {
        evt_handler_.handle_progress(current);
        reported = current;
      }
    }
    // Ends early when the worker does.
    platform::Clock::current().wait_for(worker.finished(), std::chrono::seconds(TIME_INTERVAL));
  }
  evt_handler_.handle_progress(end);
  return true;
}

bool Backup_Executor::get_backup_size(const char* database, ACE_UINT64& backup_size, ACE_UINT64& transferred_size,
                                      std::time_t since) const {
  if (ancient_version_) return false;
  char filter[filter_bytes] = "";
  if (mdc_) std::snprintf(filter, sizeof filter, "where DATABASE_NAME='%s'", database);
  char sql[statement_bytes];
  std::snprintf(sql, sizeof sql,
                "select TO_VARCHAR(UTC_START_TIME, 'YYYY-MM-DD HH24:MI:SS') as START_TIME,"
                " BACKUP_SIZE,TRANSFERRED_SIZE from %s.M_BACKUP_PROGRESS %s",
                catalog_schema(), filter);
  backup_size = 0;
  transferred_size = 0;
  Table table;
  // Without an end of its own a question that HANA does not answer would hide the end of the backup.
  const HDBSQL_Executor asking = hdbsql_.with_time_limit(question_limit);
  if (!asking.execute(sql, &table, job_.log_msg_callback())) return false;
  if (table.get_key().empty() || table.get_values().empty()) return false;
  return sum_sizes(table, since, backup_size, transferred_size) && backup_size != 0 && transferred_size != 0;
}

}  // namespace sap_hana
