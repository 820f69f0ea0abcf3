#include "hana/common/tenant_database_creator.h"

#include <list>

#include "hana/common/database_lister.h"
#include "hana/common/hana_paths.h"
#include "hana/common/text_lines.h"
#include "platform/log.h"
#include "records/tenant_name.h"

namespace sap_hana {

namespace {

/// Always in quotes, so that HANA keeps the letter case and reads no word of its own in it.
secure_string create_statement(const std::string& database, const secure_string& password) {
  secure_string sql("CREATE DATABASE " + database + " SYSTEM USER PASSWORD \"");
  for (const char c : password.view()) {
    if (c == '"') sql.push_back('"');
    sql.push_back(c);
  }
  sql.append("\" NO START");
  return sql;
}

/// hdbsql did not say how it ended: HANA may have done it all the same.
bool is_in_doubt(HDBSQL_Failure failure) {
  return failure == HDBSQL_Failure::tool || failure == HDBSQL_Failure::connection;
}

}  // namespace

bool Tenant_Database_Creator::may_create(const std::string& database, const secure_string& password,
                                         std::string& why) const {
  if (!is_tenant_name(database))
    why = std::string("the name is not fit for a tenant: ") + tenant_name_rule;
  else if (password.empty())
    why = "the password of the new database's user SYSTEM is empty";
  else if (has_control_characters(password.view()))
    why = "the password of the new database's user SYSTEM holds control characters";
  else if (!executor_.is_multi_container())
    why = "the system " + executor_.sid() + " is a single container and has no tenants";
  if (!why.empty()) return false;
  std::list<Database_Info> found;
  if (!Database_Lister(executor_).list(found, database)) {
    why = "the databases of system " + executor_.sid() +
          " cannot be listed: it must run, and the stored account must be able to log on to SYSTEMDB; the agent's log "
          "tells more";
    return false;
  }
  if (found.empty()) return true;
  why = "the database " + database + " exists already; nothing was created";
  return false;
}

bool Tenant_Database_Creator::create(const std::string& database, const secure_string& password, std::string& why) {
  why.clear();
  if (!may_create(database, password, why)) return false;
  const HDBSQL_Outcome outcome = executor_.run_secretly(create_statement(database, password), password);
  if (outcome.ok()) {
    D3_INFO("Created database '%C' of HANA system %C\n", database.c_str(), executor_.sid().c_str());
    return true;
  }
  D3_ERROR("Failed to create database '%C' of HANA system %C: %C\n", database.c_str(), executor_.sid().c_str(),
           outcome.message.c_str());
  why = "HANA did not create the database " + database + ": " + outcome.message;
  if (is_in_doubt(outcome.failure)) why += "; it may be there all the same, list the databases before trying again";
  return false;
}

}  // namespace sap_hana
