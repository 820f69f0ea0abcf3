#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "engine/system_state.h"

namespace standin {

inline constexpr const char* complete_backup = "complete data backup";
inline constexpr const char* incremental_backup = "incremental data backup";
inline constexpr const char* differential_backup = "differential data backup";
inline constexpr const char* log_backup = "log backup";

struct Catalog_File {
  std::int64_t source_id = 0;
  std::string source_type;  ///< volume, topology, catalog
  std::string service;
  std::int64_t size = 0;
  std::string path;
  std::string destination;  ///< file, backint
  std::string external_id;  ///< empty: NULL
  std::int64_t redo = 0;
};

struct Backup_Base {
  std::int64_t backup_id = 0;
  std::int64_t savepoint = 0;
};

/// HANA's backup catalog of all databases.
class Catalog {
 public:
  explicit Catalog(System_State& state) : state_(state) {}
  /// The entry's id. `visible_ms`: from when on queries see it.
  std::int64_t begin(const std::string& database, const std::string& type, std::int64_t backup_id,
                     const std::string& comment, std::int64_t savepoint, std::int64_t visible_ms);
  bool add_file(const std::string& database, std::int64_t entry, std::int64_t backup_id, const Catalog_File& file);
  /// What a log backup's file holds of its service's log.
  /// `until_ms`: all that was committed before is in it or in an earlier one.
  bool note_log(std::int64_t entry, std::int64_t first, std::int64_t last, std::int64_t segments,
                std::int64_t until_ms);
  /// When the state of the database was that a data backup holds.
  bool note_savepoint(std::int64_t entry, std::int64_t ms);
  /// Of a file that was added when its backup began: what is known when it has ended.
  bool complete_file(std::int64_t entry, const Catalog_File& file);
  /// "cancel pending"; `with_end` writes an end time already.
  bool set_pending(std::int64_t entry, bool with_end);
  bool finish(std::int64_t entry, const std::string& state, const std::string& message);
  /// The newest successful data backup that a delta may start from: one since the last recovery.
  std::optional<Backup_Base> base_of_delta(const std::string& database, bool only_full);
  /// Entries that a server left running when it died.
  bool fail_unfinished();
  /// Takes a backup's entry out; false when there is none.
  bool forget(const std::string& database, std::int64_t backup_id);
  std::optional<std::string> state_of_data_backup(const std::string& database, std::int64_t backup_id);
  std::int64_t newest_id(const std::string& database);
  /// One line per entry and file of the database: what a catalog backup holds (catalog_image.h reads it).
  std::string text(const std::string& database);

 private:
  System_State& state_;
};

}  // namespace standin
