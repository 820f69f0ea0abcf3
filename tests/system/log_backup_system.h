#pragma once

#include <string>
#include <vector>

#include "system_fixture.h"

namespace system_tests {

/// A system whose log backup is switched on: HANA hands its logs to hdbbackint by itself, each is recorded as a set.
class Log_Backup_System : public System_Fixture {
 protected:
  /// All of it, with log backups of these databases (all for none) and a first full backup, from which the logs count.
  /// A log backup is made when a test lets time pass, not before.
  void start_with_log_backup(const Hana& hana = {}, const std::vector<std::string>& databases = {});

  /// Stores the definition of a log backup; the setup that the definition then tells. `database`: of the instance when
  /// empty; `number` makes it another definition, `level` a changed one.
  json_spirit::Object enable_log_backup(const std::string& database = {}, int number = 1, int level = 1);
  /// Removes that definition; what the answer tells.
  Rest_Answer disable_log_backup(const std::string& database = {}, int number = 1, bool force = false);
  [[nodiscard]] static std::string definition_id(const std::string& database = {}, int number = 1);
  /// The "setup" of the definition now; empty when there is no such definition.
  [[nodiscard]] json_spirit::Object setup_of(const std::string& database = {}, int number = 1) const;

  /// Commits something in a database.
  void commit(const std::string& database, const std::string& key) const;
  /// Commits in each of the databases and lets the time pass after which HANA closes its log segments. One log backup
  /// for each service comes of it, each followed by one of the catalog.
  void make_logs(const std::vector<std::string>& databases);
  /// The value that HANA's own configuration has for a key; empty when it sets none.
  [[nodiscard]] std::string setting(const std::string& key) const;
  /// Names of the files by which hdbbackint knows of log backups.
  [[nodiscard]] std::vector<std::string> configuration_files() const;

  /// What HANA's catalog calls saved by Backint of its logs and catalogs, "database backup-id external-id", ordered.
  [[nodiscard]] std::vector<std::string> saved_by_hana(const std::vector<std::string>& databases) const;
  /// The same of the sets of type "log" and "catalog" on backupd.
  [[nodiscard]] std::vector<std::string> recorded_sets() const;
  /// Backups that HANA began by itself and that no set holds yet.
  [[nodiscard]] long waiting_runs() const;
  /// Waits until HANA's catalog lists `count` log and catalog backups as saved and none is under way, and until each of
  /// them is recorded and nothing waits any more.
  [[nodiscard]] bool all_recorded(const std::vector<std::string>& databases, std::size_t count,
                                  std::chrono::seconds limit = state_limit) const;

  /// Long enough that no log backup comes by itself while a test runs.
  static constexpr int log_timeout_s = 100000;

 private:
  int offset_s_ = 0;
};

}  // namespace system_tests
