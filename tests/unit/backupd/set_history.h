#pragma once

#include <string>
#include <vector>

#include "backupd/store/database.h"
#include "json/value.h"
#include "unit/backupd/memory_server.h"

namespace backupd_test {

/// One backup set of a history that a test writes down. Times are "HH:MM:SS" of 2026-11-20, as HANA has them; the
/// record begins a second later, as the module makes it.
struct Set_Line {
  std::string name;  ///< its uuid is uuid_named(name)
  std::string type;
  std::string begin;
  std::string end;
  std::vector<std::string> files;  ///< names of its objects
  std::string lifeline = "L1";
  std::string base;  ///< name of the full backup it builds on; empty: its own
  bool online = true;
  std::string database = "TN1";
};

/// A uuid that a name always gives.
[[nodiscard]] std::string uuid_named(const std::string& name);
/// "2026-11-20 HH:MM:SS", `shift` seconds later.
[[nodiscard]] std::string time_at(const std::string& clock, int shift = 0);
[[nodiscard]] long backup_id_at(const std::string& clock);
/// The record as backupd keeps it. Each object has 1000 bytes, 400 on the pool.
[[nodiscard]] json_spirit::Object set_document(const Set_Line& line);
/// Puts the sets into the table, in this order.
void insert_sets(backupd::Database& database, const std::vector<Set_Line>& lines,
                 const std::string& resource = backupd_test::resource_uuid);
/// Where an object of the set lies within its pool.
[[nodiscard]] std::string stored_path(const Set_Line& line, const std::string& file);

/// "log_backup_<volume>_0_<first>_<last>"
[[nodiscard]] std::string log_name(int volume, int first, int last);
inline constexpr char catalog_name[] = "log_backup_0_0_0_0";

}  // namespace backupd_test
