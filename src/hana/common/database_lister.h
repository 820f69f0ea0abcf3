#pragma once

#include <chrono>
#include <list>
#include <string>

#include "hana/common/hana_records.h"
#include "hana/common/hdbsql_executor.h"
#include "platform/secure_string.h"

namespace sap_hana {

/// Lists the databases of one system through SQL.
class Database_Lister {
 public:
  /// Through an executor that is bound to the system database and outlives this object.
  explicit Database_Lister(const HDBSQL_Executor& executor);
  /// Through an executor of its own.
  Database_Lister(const std::string& sid, const std::string& instance_name, const std::string& username,
                  const secure_string& password);
  /// Of an executor of its own, see HDBSQL_Executor.
  void time_limit(std::chrono::seconds limit) { own_.time_limit(limit); }
  Database_Lister(const Database_Lister&) = delete;
  Database_Lister& operator=(const Database_Lister&) = delete;

  /// Facts of one database. False, with a message, when the query fails or when there is no such database; `info` is
  /// then left alone.
  [[nodiscard]] bool list(Database_Info& info, const std::string& name);
  /// All databases whose name equals `filter`, or all when it is empty, in order of name with the system database
  /// first; appended. A system without tenants has one: its own, active, with the name its view tells.
  [[nodiscard]] bool list(std::list<Database_Info>& infos, const std::string& filter);

 private:
  [[nodiscard]] bool query(std::list<Database_Info>& infos, const std::string& name);

  HDBSQL_Executor own_;
  const HDBSQL_Executor* executor_;
  bool ready_ = true;
};

}  // namespace sap_hana
