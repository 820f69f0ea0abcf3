// The recovery statements. Their text is that of Recovery_Statement, which those who plan a restore show beforehand.

#include "hana/job/restore_executor.h"
#include "records/recovery_statement.h"

namespace sap_hana {

Recovery_Statement Restore_Executor::statement_of(const Backup_Set_Info& info, bool tenantdb) const {
  Recovery_Statement statement;
  statement.origin_database = info.origin_dbname;
  statement.origin_sid = info.origin_sid;
  statement.target_database = info.target_dbname;
  statement.target_sid = sid_;
  statement.set_uuid = info.catalog_uuid;
  statement.backup_id = info.database_backup_id;
  statement.time = info.target_time;
  statement.full_only = info.is_full_backup;
  statement.tenant = tenantdb;
  statement.multi_container = mdc_;
  statement.ancient = ancient_version_;
  statement.ignore_delta = ignore_delta_;
  return statement;
}

bool Restore_Executor::generate_restore_cmd(const Backup_Set_Info& info, std::string& cmd, bool tenantdb) const {
  return info.is_full_backup ? generate_full_restore_cmd(info, cmd, tenantdb)
                             : generate_point_in_time_restore_cmd(info, cmd, tenantdb);
}

bool Restore_Executor::generate_full_restore_cmd(const Backup_Set_Info& info, std::string& cmd, bool tenantdb) const {
  Recovery_Statement statement = statement_of(info, tenantdb);
  statement.full_only = true;
  cmd = statement.text();
  return !cmd.empty();
}

bool Restore_Executor::generate_point_in_time_restore_cmd(const Backup_Set_Info& info, std::string& cmd,
                                                          bool tenantdb) const {
  Recovery_Statement statement = statement_of(info, tenantdb);
  statement.full_only = false;
  cmd = statement.text();
  return !cmd.empty();
}

}  // namespace sap_hana
