#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "agent/api/instance.h"
#include "agent/instance/account_store.h"
#include "platform/secure_string.h"

/// The host agent's registry of database instances and of the accounts to log on to them.
///
/// Instances and accounts are kept in two files (docs/formats/instances.md, docs/formats/accounts.md); a change is on
/// the disk before it is seen and before the call returns. Any thread may call; records given out are never changed
/// afterwards.
class Instance_Manager {
 public:
  using Instance_var = std::shared_ptr<Instance>;
  using Instances = std::map<std::string, Instance_var>;  ///< of one type, by name

  /// The process-wide registry; null when this process has none.
  [[nodiscard]] static Instance_Manager* instance();

  Instance_Manager();
  ~Instance_Manager();
  Instance_Manager(const Instance_Manager&) = delete;
  Instance_Manager& operator=(const Instance_Manager&) = delete;

  /// Reads what is kept. Call once, before others use the object. False, with a message, when a file cannot be read or
  /// is not ours: it is then left as it is, and every change of what it holds is refused.
  [[nodiscard]] bool open();

  /// The record of an instance; null when there is none or an argument is null. Records given out are not changed.
  [[nodiscard]] Instance_var find(const char* type, const char* name) const;
  [[nodiscard]] std::vector<Instance_var> list(const std::string& type) const;
  /// Adds or replaces records, each under its type and name, as deep copies. A record without a uuid keeps the one that
  /// the registry has, or is given a new one; logon options that are empty are kept too.
  [[nodiscard]] bool store(const Instances& instances);
  /// Forgets an instance and its accounts. True when it is not there in the end.
  [[nodiscard]] bool remove(const std::string& type, const std::string& name);

  /// The account stored for (type, name, uid), else the one for (type, name, ""). 0, or -1 when there is none; the
  /// outputs are then left alone. `extra` may be null; a null `uid` counts as empty.
  [[nodiscard]] int get_account(const char* type, const char* instance_manager_name, const char* uid,
                                std::string& username, secure_string& password, std::string* extra = nullptr) const;
  /// Stores an account or replaces it. Refused, with a message: an empty type, name, user or password,
  /// and control characters in these or in the uid.
  [[nodiscard]] bool set_account(const std::string& type, const std::string& name, const std::string& uid,
                                 const std::string& username, const secure_string& password,
                                 const std::string& extra = {});
  /// True when it is not there in the end.
  [[nodiscard]] bool remove_account(const std::string& type, const std::string& name, const std::string& uid);

 private:
  using Key = std::pair<std::string, std::string>;  ///< type, name
  using Registry = std::map<Key, Instance_var>;

  [[nodiscard]] bool change_instances(const std::function<void(Registry&)>& change);
  [[nodiscard]] bool change_accounts(const std::function<void(Accounts&)>& change);

  std::mutex change_mutex_;   ///< one change at a time; taken before mutex_
  mutable std::mutex mutex_;  ///< guards what follows
  Registry registry_;
  Accounts accounts_;
  bool instances_readable_ = true;
  bool accounts_readable_ = true;
};

/// Makes `manager` the process-wide registry for the life of this object.
class Scoped_Instance_Manager {
 public:
  explicit Scoped_Instance_Manager(Instance_Manager& manager);
  ~Scoped_Instance_Manager();
  Scoped_Instance_Manager(const Scoped_Instance_Manager&) = delete;
  Scoped_Instance_Manager& operator=(const Scoped_Instance_Manager&) = delete;

 private:
  Instance_Manager* previous_;
};
