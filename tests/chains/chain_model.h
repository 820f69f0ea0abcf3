#pragma once

#include <cstddef>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

namespace chains {

enum class Kind { full, differential, incremental };
enum class Destination { backint, files };

/// One data backup of one database: what was asked for, and what the rules make of it.
struct Backup {
  std::time_t at = 0;  ///< when it was due
  Kind wanted = Kind::full;
  Kind kind = Kind::full;
  Destination destination = Destination::backint;
  bool successful = true;
  std::string pool;
  std::string lift_reason;  ///< of a delta that became a full one
  // Places in the table:
  std::size_t lifeline = 0;         ///< of the backup that began the lifeline
  std::size_t incarnation = 0;      ///< of the full backup that it is counted to
  std::optional<std::size_t> base;  ///< of the backup that HANA built it on

  /// Only these become backup sets.
  [[nodiscard]] bool is_set() const { return successful && destination == Destination::backint; }
};

/// What must come of a database's schedule, as a table of its backups and a few rules. Written from the description of
/// the product and of HANA; shares nothing with their code. Times are those of the schedule: events must lie far enough
/// apart that the few seconds which a backup takes do not matter.
class Chain_Model {
 public:
  /// HANA has recovered the database.
  void recovered(std::time_t at) { recovered_ = at; }
  /// A run of the product asks for this kind, to this pool.
  void scheduled(std::time_t at, Kind wanted, const std::string& pool);
  /// The same, but HANA's backup fails. What it would have been is still what HANA was asked for.
  void failed(std::time_t at, Kind wanted, const std::string& pool);
  /// HANA makes a full backup to files, without the product.
  void made_to_files(std::time_t at);

  [[nodiscard]] const std::vector<Backup>& backups() const { return backups_; }
  /// The backups that HANA needs to bring back this one, the full one first.
  [[nodiscard]] std::vector<std::size_t> needed_by_hana(std::size_t place) const;
  /// All of them are sets that are counted to the same full backup.
  [[nodiscard]] bool is_recorded_whole(std::size_t place) const;

 private:
  [[nodiscard]] std::string reason_for_full(Kind wanted, const std::string& pool) const;
  void count_to_chains(Backup& fresh) const;
  [[nodiscard]] std::optional<std::size_t> base_in_hana(Kind kind) const;
  template <typename Condition>
  [[nodiscard]] std::optional<std::size_t> newest(Condition condition) const;

  std::vector<Backup> backups_;
  std::time_t recovered_ = 0;
};

}  // namespace chains
