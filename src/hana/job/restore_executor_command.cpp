// The recovery statements, piece by piece as HANA is given them.

#include <sstream>

#include "hana/job/restore_executor.h"

namespace sap_hana {

bool Restore_Executor::generate_restore_cmd(const Backup_Set_Info& info, std::string& cmd, bool tenantdb) const {
  return info.is_full_backup ? generate_full_restore_cmd(info, cmd, tenantdb)
                             : generate_point_in_time_restore_cmd(info, cmd, tenantdb);
}

std::string Restore_Executor::source_clause(const Backup_Set_Info& info) const {
  if (info.origin_sid == sid_ && info.origin_dbname == info.target_dbname) return {};
  return "USING SOURCE '" + info.origin_dbname + (mdc_ ? "@" + info.origin_sid : std::string()) + "' ";
}

bool Restore_Executor::generate_full_restore_cmd(const Backup_Set_Info& info, std::string& cmd, bool tenantdb) const {
  std::ostringstream statement;
  statement << "RECOVER DATA ";
  if (tenantdb) statement << "FOR " << info.target_dbname << " ";
  statement << source_clause(info);
  if (info.catalog_uuid.empty()) {
    statement << "USING BACKUP_ID " << info.database_backup_id;
    if (!ancient_version_) statement << " USING CATALOG BACKINT";
  } else {
    statement << "USING BACKINT ('" << info.catalog_uuid << "')";
  }
  statement << " CLEAR LOG;";
  cmd = statement.str();
  return !cmd.empty();
}

bool Restore_Executor::generate_point_in_time_restore_cmd(const Backup_Set_Info& info, std::string& cmd,
                                                          bool tenantdb) const {
  std::ostringstream statement;
  statement << "RECOVER DATABASE ";
  if (tenantdb) statement << "FOR " << info.target_dbname << " ";
  statement << "UNTIL TIMESTAMP '" << info.target_time << "' CLEAR LOG ";
  statement << source_clause(info);
  if (!ancient_version_) statement << " USING CATALOG BACKINT";
  statement << " USING BACKUP_ID " << info.database_backup_id;
  statement << " CHECK ACCESS ALL";
  if (ignore_delta_) statement << " IGNORE DELTA DATA BACKUPS";
  cmd = statement.str();  // without a semicolon, unlike the other statement
  return !cmd.empty();
}

}  // namespace sap_hana
