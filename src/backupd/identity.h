#pragma once

#include <cstdint>
#include <string>

namespace backupd {

/// Who a key stands for. Values are bits, so that a route can name several.
enum Role : unsigned { role_none = 0, role_agent = 1, role_viewer = 2, role_operator = 4 };

struct Identity {
  Role role = role_none;
  std::string host_uuid;  ///< of an agent's key
  std::int64_t key_id = 0;
};

/// "agent", "viewer", "operator"; role_none for any other word.
[[nodiscard]] Role role_from_name(const std::string& name);
[[nodiscard]] const char* role_name(Role role);

}  // namespace backupd
