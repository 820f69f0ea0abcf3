#pragma once

#include <cstdint>
#include <string>

/// What HANA is told about a recovery.
struct Recovery_Statement {
  std::string origin_database;  ///< that was backed up
  std::string origin_sid;       ///< of the system that was backed up
  std::string target_database;  ///< to recover into
  std::string target_sid;       ///< of the system to recover into
  std::string set_uuid;         ///< of a full backup that was chosen itself; else empty
  std::uint64_t backup_id = 0;  ///< HANA's id of the full backup
  std::string time;             ///< to recover to, UTC; for a recovery over logs
  bool full_only = false;       ///< the full backup alone
  bool tenant = false;          ///< one database out of several; else the whole system, or its system database
  bool multi_container = false;
  bool ancient = false;       ///< a version that takes no catalog by way of Backint
  bool ignore_delta = false;  ///< for a recovery over logs

  /// The statement. Its blanks, and that only one of its two forms ends in a semicolon, are HANA's interface.
  [[nodiscard]] std::string text() const;

 private:
  [[nodiscard]] std::string source_clause() const;
  [[nodiscard]] std::string full_text() const;
  [[nodiscard]] std::string point_in_time_text() const;
};
