#include "backupd/http/key_store.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include "backupd/http/body_reader.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "scrt/time_text.h"

namespace backupd {

namespace {

constexpr std::size_t key_random_bytes = 32;
constexpr char key_prefix[] = "d3-";

template <typename Output>
void to_hex(const unsigned char* bytes, std::size_t size, Output& out) {
  constexpr char digits[] = "0123456789abcdef";
  for (std::size_t i = 0; i < size; ++i) {
    out.push_back(digits[bytes[i] >> 4]);
    out.push_back(digits[bytes[i] & 15U]);
  }
}

bool make_key(secure_string& key) {
  unsigned char bytes[key_random_bytes];
  if (RAND_bytes(bytes, sizeof bytes) != 1) {
    D3_ERROR("Failed to get random bytes for a key\n");
    return false;
  }
  key = secure_string(key_prefix);
  to_hex(bytes, sizeof bytes, key);
  platform::wipe_memory(bytes, sizeof bytes);
  return true;
}

}  // namespace

Role role_from_name(const std::string& name) {
  for (const Role role : {role_agent, role_viewer, role_operator})
    if (name == role_name(role)) return role;
  return role_none;
}

const char* role_name(Role role) {
  switch (role) {
    case role_agent:
      return "agent";
    case role_viewer:
      return "viewer";
    case role_operator:
      return "operator";
    case role_none:
      break;
  }
  return "none";
}

std::string key_hash(std::string_view key) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  std::string text;
  if (EVP_Digest(key.data(), key.size(), digest, &size, EVP_sha256(), nullptr) != 1) {
    D3_ERROR("Failed to compute the hash of a key\n");
    return text;
  }
  to_hex(digest, size, text);
  return text;
}

Outcome Key_Store::add(Role role, const std::string& host_uuid, secure_string& key) {
  if (role == role_none) return Outcome::refuse(Outcome::invalid, "a key is for an agent, a viewer or an operator");
  if (role == role_agent && !is_uuid(host_uuid))
    return Outcome::refuse(Outcome::invalid, "a key for an agent needs the uuid of its host; give one");
  if (role != role_agent && !host_uuid.empty())
    return Outcome::refuse(Outcome::invalid, "only a key for an agent is bound to a host; leave the host out");
  if (!make_key(key)) return Outcome::refuse(Outcome::internal, "no random bytes; see the log");
  const std::string hash = key_hash(key.view());
  const std::string now = posix_time_to_utc_text(platform::Clock::current().wall_seconds());
  const bool stored = !hash.empty() && database_.write([&](Sql_Session& session) {
    session.execute("INSERT INTO access_keys (id, hash, role, host_uuid, created) VALUES (:a, :b, :c, :d, :e)",
                    {session.next_number("access_key"), hash, role_name(role), host_uuid, now});
    return true;
  });
  if (stored) return {};
  key.clear();
  return Outcome::refuse(Outcome::internal, "the key cannot be stored; see the log");
}

std::optional<Identity> Key_Store::find(std::string_view key, bool& failed) {
  const std::string hash = key_hash(key);
  std::optional<Sql_Row> row;
  failed = hash.empty() || !database_.read([&](Sql_Session& session) {
    row = session.first("SELECT id, role, host_uuid FROM access_keys WHERE hash = :a AND revoked IS NULL", {hash}, 3);
  });
  if (failed || !row) return std::nullopt;
  return Identity{role_from_name(row->text(1)), row->text(2), row->number(0)};
}

bool Key_Store::good(std::set<std::int64_t>& ids) {
  return database_.read([&](Sql_Session& session) {
    for (const Sql_Row& row : session.query("SELECT id FROM access_keys WHERE revoked IS NULL", {}, 1))
      ids.insert(row.number(0));
  });
}

bool Key_Store::list(std::vector<Access_Key>& keys) {
  return database_.read([&](Sql_Session& session) {
    for (const Sql_Row& row :
         session.query("SELECT id, role, host_uuid, created, revoked FROM access_keys ORDER BY id", {}, 5))
      keys.push_back({row.number(0), role_from_name(row.text(1)), row.text(2), row.text(3), row.text(4)});
  });
}

Outcome Key_Store::revoke(std::int64_t id) {
  const std::string now = posix_time_to_utc_text(platform::Clock::current().wall_seconds());
  std::int64_t changed = 0;
  const bool stored = database_.write([&](Sql_Session& session) {
    changed = session.execute("UPDATE access_keys SET revoked = :a WHERE id = :b AND revoked IS NULL", {now, id});
    return true;
  });
  if (!stored) return Outcome::refuse(Outcome::internal, "the key cannot be revoked; see the log");
  if (changed == 0)
    return Outcome::refuse(Outcome::not_found, "there is no good key " + std::to_string(id) + "; list the keys");
  return {};
}

}  // namespace backupd
