#pragma once

#include <optional>
#include <string>
#include <vector>

#include "log_backup_system.h"
#include "support/scoped_zone.h"

namespace system_tests {

/// A system with log backups, whose databases are restored. The content of a database is its table KV.
class Restore_System : public Log_Backup_System {
 protected:
  /// One database of a restore.
  struct Entry {
    std::string database;    ///< that was backed up, of HDB
    std::string timepoint;   ///< UTC; empty: `set` says
    std::string set;         ///< uuid of a backup set
    std::string restore_as;  ///< empty: under its own name
  };

  void SetUp() override;
  void TearDown() override;

  /// A second system "QAS" with instance HDB01 and tenant QA1 on this host, discovered and logged on.
  void start_second_system();
  static constexpr const char* second_instance = "QAS_HDB01";

  /// Runs a restore to its end; the name of the state in which it ended.
  std::string restore(const std::vector<Entry>& entries, bool ignore_delta = false, const std::string& into = instance);
  /// Starts one; the id of its run.
  std::string start_restore(const std::vector<Entry>& entries, bool ignore_delta = false,
                            const std::string& into = instance);

  Tool_Result sql_of(const std::string& database, const std::string& statement) const;
  void put(const std::string& database, const std::string& key, const std::string& value) const;
  /// "key,value" of each row.
  [[nodiscard]] std::string rows(const std::string& database) const;
  /// The same of the second system.
  [[nodiscard]] std::string second_rows(const std::string& database) const;
  /// HANA's time as a restore takes it; commits before and after it are seconds apart.
  std::string moment();
  /// Commits in these databases; has all logs of the system backed up and recorded.
  void save_logs(const std::vector<std::string>& databases);
  [[nodiscard]] std::vector<std::string> databases() const;
  /// Starts all with log backup: TN1 had "a,1" at `wanted_`, and has "a,2".
  void start_with_a_past();
  /// Changes one byte in the middle of each stored object of a database whose file has `mark` in its name; how many.
  int damage(const std::string& database, const std::string& mark) const;
  /// The newest set of a database and type.
  [[nodiscard]] json_spirit::Object newest_set(const std::string& database, const std::string& type) const;
  /// Files that a restore has left for hdbbackint.
  [[nodiscard]] std::vector<std::string> staged_files() const;

  std::string wanted_;  ///< the moment of start_with_a_past

 private:
  [[nodiscard]] std::string resource_of(const std::string& name) const;

  std::optional<support::Scoped_Zone> zone_;  ///< of all processes, where the environment asks for one
  int restores_ = 0;
};

}  // namespace system_tests
