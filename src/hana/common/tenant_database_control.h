#pragma once

#include <string>

#include "hana/common/hdbsql_executor.h"

namespace sap_hana {

/// Starts and stops tenant databases through an executor that is bound to the system database and outlives this object.
class Tenant_Database_Controller {
 public:
  explicit Tenant_Database_Controller(HDBSQL_Executor& executor) : executor_(executor) {}
  /// True when the database is active in the end: also when it was before. Waits while HANA still starts it. False,
  /// with a message, when there is no such database, when HANA refuses, or when the time limit has passed.
  [[nodiscard]] bool start(const std::string& database);
  /// True when the database is stopped in the end.
  [[nodiscard]] bool stop(const std::string& database);

 private:
  HDBSQL_Executor& executor_;
};

}  // namespace sap_hana
