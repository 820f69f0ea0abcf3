#pragma once

#include <map>
#include <string>
#include <tuple>

#include "platform/secure_string.h"

/// One stored logon.
struct Account {
  std::string username;
  secure_string password;
  std::string extra;
  [[nodiscard]] bool operator==(const Account&) const = default;
};

/// By type, instance name, uid of who uses it ("" for everybody).
using Account_Key = std::tuple<std::string, std::string, std::string>;
using Accounts = std::map<Account_Key, Account>;

/// The file of accounts: "/var/opt/tarvex/dorsal3/agent/accounts", mode 0600, encrypted with the key of the host in
/// "accounts.key" beside it (docs/formats/accounts.md). One thread at a time.
class Account_Store {
 public:
  /// Reads the file. No file is success with no accounts. False, with a message, when it cannot be read, is not ours,
  /// was changed, or does not belong to the key; `accounts` is then left alone and nothing on the disk is touched.
  [[nodiscard]] static bool load(Accounts& accounts);
  /// Replaces the file durably; makes the key when there is none yet. False with a message.
  [[nodiscard]] static bool save(const Accounts& accounts);

  [[nodiscard]] static std::string path();
  [[nodiscard]] static std::string key_path();
};
