#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "backupd/database.h"

namespace backupd {

/// Runs that are owed to backups which HANA began by itself: one for each Backint job record whose objects are all
/// stored. An entry leaves when a backup set holds the objects, so that nothing is lost while an agent is away or this
/// server restarts. A run that ended without the set is begun again after 1, 2, 4 ... 60 minutes. The runs of a
/// database are begun in the order of its backups, one at a time. One thread.
class Ondemand_Queue {
 public:
  using Is_Connected = std::function<bool(const std::string& host_uuid)>;

  /// Runs of one host at once.
  static constexpr std::size_t runs_at_once = 32;
  /// A backup that was tried so often does not hold back the later ones of its database any more: it may never be
  /// recorded, and HANA cannot be recovered over logs that nobody knows.
  static constexpr std::int64_t tries_in_order = 7;

  explicit Ondemand_Queue(Database& database) : database_(database) {}

  /// Settles what has ended and begins what is due on hosts with an agent; what was begun waits for the run starter.
  /// How long until the next entry falls due.
  [[nodiscard]] std::chrono::seconds work(const Is_Connected& is_connected);

 private:
  struct Entry;
  [[nodiscard]] bool read(std::vector<Entry>& entries);
  void put_off(Entry& entry);
  [[nodiscard]] bool begin(const Entry& entry);

  Database& database_;
};

/// Adds the entry of a Backint job record, in the transaction that stores its last object. Nothing when it is there.
void add_ondemand_run(Sql_Session& session, const std::string& job_uuid);
/// Removes the entry of the record that a file belongs to, in the transaction that commits the file's backup set.
void remove_ondemand_run(Sql_Session& session, std::int64_t file_id);

}  // namespace backupd
