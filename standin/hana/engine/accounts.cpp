#include "engine/accounts.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include "base/clock.h"
#include "base/text.h"

namespace standin {

namespace {

constexpr int salt_bytes = 16;
constexpr int hash_bytes = 32;
/// So few that nobody waits: what is stored here guards nothing, and each statement of a tool logs on.
constexpr int hash_rounds = 16;
/// HANA's maximum_invalid_connect_attempts.
constexpr std::int64_t allowed_failures = 6;

std::string hash_of(std::string_view password, const std::string& salt) {
  std::string hash(hash_bytes, '\0');
  PKCS5_PBKDF2_HMAC(password.data(), static_cast<int>(password.size()),
                    reinterpret_cast<const unsigned char*>(salt.data()), static_cast<int>(salt.size()), hash_rounds,
                    EVP_sha256(), hash_bytes, reinterpret_cast<unsigned char*>(hash.data()));
  return hash;
}

}  // namespace

Sql_Error locked_error() {
  constexpr std::int64_t lock_ms = 1440LL * 60 * 1000;
  const std::string until = timestamp_text(now_ms() + lock_ms, true).substr(0, 27);
  return {416,
          "user is locked; try again later: lock time is 1440 minutes; user is locked until " + until +
              " (given in UTC) [1440," + until + "]",
          "28000"};
}

Sql_Error missing_privilege() {
  unsigned char guid[16];
  RAND_bytes(guid, sizeof guid);
  return {258, "insufficient privilege: Detailed info for this error can be found with guid '" +
                   upper(hex(guid, sizeof guid)) + "'"};
}

bool Accounts::set(const std::string& database, const std::string& user, std::string_view password,
                   const std::string& privileges) {
  std::string salt(salt_bytes, '\0');
  if (RAND_bytes(reinterpret_cast<unsigned char*>(salt.data()), salt_bytes) != 1) return false;
  Statement row = state_.sqlite().prepare("INSERT OR REPLACE INTO users VALUES(?,?,?,?,?,0,0)");
  row.bind(1, database)
      .bind(2, user)
      .bind_blob(3, salt)
      .bind_blob(4, hash_of(password, salt))
      .bind(5, upper(privileges));
  return row.run();
}

bool Accounts::set_locked(const std::string& database, const std::string& user, bool locked) {
  Statement row = state_.sqlite().prepare("UPDATE users SET locked=?, failures=0 WHERE db=? AND name=?");
  return row.bind(1, locked ? 1 : 0).bind(2, database).bind(3, user).run() &&
         sqlite3_changes(state_.sqlite().raw()) == 1;
}

std::optional<Sql_Error> Accounts::logon(const std::string& database, const std::string& user,
                                         std::string_view password) {
  const Sql_Error refused{10, "authentication failed", "28000"};
  Statement row = state_.sqlite().prepare("SELECT salt, hash, locked, failures FROM users WHERE db=? AND name=?");
  row.bind(1, database).bind(2, user);
  if (!row.step()) return refused;
  if (row.number(2) != 0 || row.number(3) >= allowed_failures) return locked_error();
  const std::string wanted = row.text(1);
  const std::string given = hash_of(password, row.text(0));
  const bool good = given.size() == wanted.size() && CRYPTO_memcmp(given.data(), wanted.data(), wanted.size()) == 0;
  if (good && row.number(3) == 0) return std::nullopt;
  row = Statement();
  Statement count = state_.sqlite().prepare(
      "UPDATE users SET failures=CASE WHEN ? THEN 0 ELSE failures+1 END "
      "WHERE db=? AND name=?");
  if (!count.bind(1, good ? 1 : 0).bind(2, database).bind(3, user).run()) return Sql_Error{2, "general error"};
  if (good) return std::nullopt;
  return refused;
}

bool Accounts::has(const std::string& database, const std::string& user, std::string_view privilege) {
  Statement row = state_.sqlite().prepare("SELECT privileges FROM users WHERE db=? AND name=?");
  row.bind(1, database).bind(2, user);
  if (!row.step()) return false;
  for (const std::string& held : split(row.text(0), ','))
    if (trim(held) == "ALL" || trim(held) == privilege) return true;
  return false;
}

}  // namespace standin
