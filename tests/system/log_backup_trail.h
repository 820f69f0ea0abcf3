#pragma once

#include <map>
#include <string>
#include <vector>

#include "host.h"
#include "server.h"

namespace system_tests {

/// A backup of a log or of the catalog that HANA began by itself, as HANA's catalog lists it.
struct Log_Backup {
  std::string database;
  std::string id;
  std::string state;
  std::string destination;  ///< "backint" or "file"
  std::string ebid;         ///< empty when Backint gave none
  std::string path;         ///< of the pipe

  [[nodiscard]] bool saved() const { return state == "successful" && destination == "backint"; }
  [[nodiscard]] bool of_catalog() const { return path.ends_with("/log_backup_0_0_0_0"); }
  /// "TN1 1700000000001 log_backup_2_0_1_3"
  [[nodiscard]] std::string name() const { return database + " " + id + " " + path.substr(path.rfind('/') + 1); }
};

/// What became of HANA's own backups: on the pool, as sets, in the queue of their runs.
class Log_Backup_Trail {
 public:
  Log_Backup_Trail(const Host& host, const Server& server) : host_(host), server_(server) {}

  [[nodiscard]] std::vector<Log_Backup> listed() const;
  [[nodiscard]] std::vector<Log_Backup> saved() const;

  /// A set of type "log" or "catalog".
  struct Set {
    std::string uuid;
    std::string type;
    std::string database;
    std::string backup_id;
    std::vector<std::string> ebids;
  };
  [[nodiscard]] std::vector<Set> sets() const;

  /// What waits or runs for a database of the host, as backupd shows it.
  [[nodiscard]] std::vector<json_spirit::Object> queue(const std::string& database) const;
  /// Makes all of it due; what is left of it.
  std::size_t drain(const std::string& database) const;
  /// HANA's id of the backup that a row of the queue is owed to.
  [[nodiscard]] std::string backup_of(const json_spirit::Object& row) const;

  /// SHA-256 of each stream as HANA wrote it, by external id.
  [[nodiscard]] std::map<std::string, std::string> written() const;
  /// What HANA has saved and no set holds.
  [[nodiscard]] std::vector<Log_Backup> not_recorded() const;
  /// Each backup that HANA has saved is in one set, of its database, id and kind; no other is in any.
  void expect_recorded_once() const;
  /// What is still owed is not owed to what HANA has saved: hdbbackint died after all was stored, and HANA took the
  /// backup for failed.
  void expect_nothing_owed(const std::vector<std::string>& databases) const;
  /// Everything that HANA has saved comes back as HANA wrote it.
  void expect_readable() const;

  /// Has hdbbackint read these back for HANA: SHA-256 by external id. All are of one database.
  [[nodiscard]] std::map<std::string, std::string> read_back(const std::vector<Log_Backup>& backups) const;

 private:
  const Host& host_;
  const Server& server_;
};

}  // namespace system_tests
