#pragma once

#include <string>

#include "hana/common/hdbsql_executor.h"
#include "platform/secure_string.h"

namespace sap_hana {

/// Creates tenant databases through an executor that is bound to the system database and outlives this object. One
/// thread.
class Tenant_Database_Creator {
 public:
  explicit Tenant_Database_Creator(const HDBSQL_Executor& executor) : executor_(executor) {}

  /// Creates a tenant that is not started; `password` becomes that of its user SYSTEM. Returns when HANA has it, which
  /// may take minutes. False when the system has no tenants, when the name or the password cannot be used, when there
  /// is such a database, or when HANA refuses: `why`, which never holds the password, then tells what to do.
  [[nodiscard]] bool create(const std::string& database, const secure_string& password, std::string& why);

 private:
  [[nodiscard]] bool may_create(const std::string& database, const secure_string& password, std::string& why) const;

  const HDBSQL_Executor& executor_;
};

}  // namespace sap_hana
