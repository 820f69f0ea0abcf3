#pragma once

#include <optional>
#include <string>

#include "engine/sql_text.h"
#include "engine/system_state.h"

namespace standin {

/// Accounts of each database; passwords are kept as salted hashes.
class Accounts {
 public:
  explicit Accounts(System_State& state) : state_(state) {}
  /// `privileges`: names separated by commas, or "ALL".
  [[nodiscard]] bool set(const std::string& database, const std::string& user, std::string_view password,
                         const std::string& privileges);
  [[nodiscard]] bool set_locked(const std::string& database, const std::string& user, bool locked);
  /// Nothing when the logon is good.
  std::optional<Sql_Error> logon(const std::string& database, const std::string& user, std::string_view password);
  [[nodiscard]] bool has(const std::string& database, const std::string& user, std::string_view privilege);

 private:
  System_State& state_;
};

Sql_Error locked_error();
Sql_Error missing_privilege();

}  // namespace standin
