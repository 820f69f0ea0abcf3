#include "records/recovery_statement.h"

std::string Recovery_Statement::text() const { return full_only ? full_text() : point_in_time_text(); }

std::string Recovery_Statement::source_clause() const {
  if (origin_sid == target_sid && origin_database == target_database) return {};
  return "USING SOURCE '" + origin_database + (multi_container ? "@" + origin_sid : std::string()) + "' ";
}

std::string Recovery_Statement::full_text() const {
  std::string statement = "RECOVER DATA ";
  if (tenant) statement += "FOR " + target_database + " ";
  statement += source_clause();
  if (set_uuid.empty()) {
    statement += "USING BACKUP_ID " + std::to_string(backup_id);
    if (!ancient) statement += " USING CATALOG BACKINT";
  } else {
    statement += "USING BACKINT ('" + set_uuid + "')";
  }
  return statement + " CLEAR LOG;";
}

std::string Recovery_Statement::point_in_time_text() const {
  std::string statement = "RECOVER DATABASE ";
  if (tenant) statement += "FOR " + target_database + " ";
  statement += "UNTIL TIMESTAMP '" + time + "' CLEAR LOG ";
  statement += source_clause();
  if (!ancient) statement += " USING CATALOG BACKINT";
  statement += " USING BACKUP_ID " + std::to_string(backup_id);
  statement += " CHECK ACCESS ALL";
  if (ignore_delta) statement += " IGNORE DELTA DATA BACKUPS";
  return statement;
}
