#include "hana/common/database_lister.h"

#include <strings.h>

#include <algorithm>
#include <tuple>

#include "hana/common/hana_paths.h"
#include "hana/common/hdbsql_general_text_handler.h"
#include "hana/common/hdbsql_input.h"
#include "hana/common/system_instance_lister.h"
#include "hana/common/text_lines.h"
#include "platform/log.h"

namespace sap_hana {

namespace {

constexpr std::size_t logged_name_bytes = 512;
constexpr const char* null_value = "?";
constexpr const char* active_status = "YES";

using Row = HDBSQL_General_Text_Handler::Row;

/// The value of a column; empty for NULL, for a column that is not there and for a row that is too short.
std::string value_of(const HDBSQL_General_Text_Handler& handler, const Row& row, const char* column) {
  const auto found = handler.get_key().find(column);
  if (found == handler.get_key().end() || static_cast<std::size_t>(found->second) >= row.size()) return {};
  const std::string& value = row[static_cast<std::size_t>(found->second)];
  return value == null_value ? std::string() : value;
}

Database_Info read_row(const HDBSQL_General_Text_Handler& handler, const Row& row,
                       const System_Instance_Info& instance) {
  Database_Info info;
  info.instance_info = instance;
  info.name = value_of(handler, row, "DATABASE_NAME");
  info.description = value_of(handler, row, "DESCRIPTION");
  info.active = value_of(handler, row, "ACTIVE_STATUS") == active_status;
  info.os_user = value_of(handler, row, "OS_USER");
  info.os_group = value_of(handler, row, "OS_GROUP");
  // Databases that are not isolated from each other belong to the system's own user.
  if (info.os_user.empty()) info.os_user = system_user(instance.system_info.sid);
  if (info.os_group.empty()) info.os_group = sap_group;
  return info;
}

std::string tenants_statement(const std::string& name) {
  std::string sql = "select DATABASE_NAME, DESCRIPTION, ACTIVE_STATUS, OS_USER, OS_GROUP from SYS.M_DATABASES";
  if (!name.empty()) sql += " where DATABASE_NAME=" + sql_literal(name);
  return sql;
}

/// A system without tenants that answers is active.
constexpr const char* single_statement = "select DATABASE_NAME, 'YES' as ACTIVE_STATUS from SYS.M_DATABASE";

bool before(const Database_Info& left, const Database_Info& right) {
  const auto rank = [](const Database_Info& info) {
    return std::tuple<bool, const std::string&>(info.name != system_database_name, info.name);
  };
  return rank(left) < rank(right);
}

}  // namespace

Database_Lister::Database_Lister(const HDBSQL_Executor& executor) : executor_(&executor) {}

Database_Lister::Database_Lister(const std::string& sid, const std::string& instance_name, const std::string& username,
                                 const secure_string& password)
    : executor_(&own_), ready_(own_.init(sid, instance_name, {}, username, password)) {}

bool Database_Lister::query(std::list<Database_Info>& infos, const std::string& name) {
  if (!ready_) return false;
  System_Instance_Info instance;
  if (!System_Instance_Lister().list(instance, executor_->sid(), instance_name_of(executor_->instance_number())))
    return false;
  const bool tenants = executor_->is_multi_container();
  HDBSQL_General_Text_Handler handler;
  if (!executor_->execute(tenants ? tenants_statement(name) : single_statement, &handler, nullptr)) return false;
  std::list<Database_Info> found;
  for (const Row& row : handler.get_values()) {
    Database_Info info = read_row(handler, row, instance);
    if (!info.name.empty()) found.push_back(std::move(info));
  }
  found.sort(before);
  infos.splice(infos.end(), found);
  return true;
}

bool Database_Lister::list(Database_Info& info, const std::string& name) {
  std::list<Database_Info> found;
  if (!query(found, name)) return false;
  if (found.empty()) {
    D3_ERROR("HANA system %C has no database '%C'\n", executor_->sid().c_str(),
             printable(name, logged_name_bytes).c_str());
    return false;
  }
  info = std::move(found.front());
  return true;
}

bool Database_Lister::list(std::list<Database_Info>& infos, const std::string& filter) { return query(infos, filter); }

}  // namespace sap_hana
