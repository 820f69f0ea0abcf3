#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "backupd/identity.h"
#include "backupd/outcome.h"
#include "backupd/store/database.h"
#include "platform/secure_string.h"

namespace backupd {

struct Access_Key {
  std::int64_t id = 0;
  Role role = role_none;
  std::string host_uuid;
  std::string created;
  std::string revoked;  ///< empty while it is good
};

/// The keys with which requests show who sends them. Only their SHA-256 hashes are kept. Safe from any thread.
class Key_Store {
 public:
  explicit Key_Store(Database& database) : database_(database) {}

  /// Makes a new key, told once. An agent's key needs the uuid of its host, the others have none.
  [[nodiscard]] Outcome add(Role role, const std::string& host_uuid, secure_string& key);
  /// Whom `key` stands for; nothing for an unknown or revoked one. `failed` tells that the store could not be read.
  [[nodiscard]] std::optional<Identity> find(std::string_view key, bool& failed);
  /// The ids of all keys that were not revoked.
  [[nodiscard]] bool good(std::set<std::int64_t>& ids);
  [[nodiscard]] bool list(std::vector<Access_Key>& keys);
  [[nodiscard]] Outcome revoke(std::int64_t id);

 private:
  Database& database_;
};

/// SHA-256 in lower-case hexadecimal.
[[nodiscard]] std::string key_hash(std::string_view key);

}  // namespace backupd
