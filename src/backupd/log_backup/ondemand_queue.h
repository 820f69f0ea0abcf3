#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "backupd/log_backup/ondemand_rows.h"
#include "backupd/store/database.h"

namespace backupd {

/// Runs that are owed to backups which HANA began by itself: one for each Backint job record whose objects are all
/// stored. An entry leaves when a backup set holds the objects, so that nothing is lost while an agent is away or this
/// server restarts. A run that ended without the set is begun again after 1, 2, 4 ... 60 minutes, and given up in the
/// end (Ondemand_Entry). The runs of a database are begun in the order of its backups, one at a time. What a look costs
/// depends on what is due and under way, not on how much waits. One thread.
class Ondemand_Queue {
 public:
  using Is_Connected = std::function<bool(const std::string& host_uuid)>;

  /// Runs of one host at once.
  static constexpr std::size_t runs_at_once = 32;

  explicit Ondemand_Queue(Database& database) : database_(database) {}

  /// Settles what has ended and begins what is due on hosts with an agent; what was begun waits for the run starter.
  /// How long until the next entry falls due.
  [[nodiscard]] std::chrono::seconds work(const Is_Connected& is_connected);

 private:
  /// What is under way.
  struct Load {
    std::map<std::string, std::size_t> runs;  ///< by host
    std::set<Ondemand_Database> busy;
  };

  /// How beginning the run of an entry went.
  enum class Begun { yes, no, lets_next_pass };

  [[nodiscard]] bool settle_ended(Load& load);
  /// False when the database's next entry has become free meanwhile.
  [[nodiscard]] bool begin_due(const Is_Connected& is_connected, Load& load);
  void put_off(const Ondemand_Entry& entry);
  [[nodiscard]] Begun begin(const Ondemand_Entry& entry);
  [[nodiscard]] std::chrono::seconds until_next();

  Database& database_;
};

}  // namespace backupd
