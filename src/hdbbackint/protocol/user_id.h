#pragma once

#include <string>
#include <string_view>

namespace hdbbackint {

/// For whom HANA asks: "<database>@<SID>" for a database of a tenant system, "<SID>" alone otherwise.
struct User_Id {
  std::string sid;
  std::string database;  ///< empty when only the SID is given: any database of the system
};

/// False for a text without a SID.
[[nodiscard]] bool parse_user_id(std::string_view text, User_Id& user);

}  // namespace hdbbackint
