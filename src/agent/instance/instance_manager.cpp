#include "agent/instance/instance_manager.h"

#include <atomic>
#include <string_view>

#include "agent/instance/instance_store.h"
#include "platform/log.h"
#include "scrt/uuid.h"

namespace {

std::atomic<Instance_Manager*> current_manager{nullptr};

constexpr unsigned char first_printable = 0x20;
constexpr unsigned char delete_character = 0x7f;

bool has_control_characters(std::string_view text) {
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < first_printable || byte == delete_character) return true;
  }
  return false;
}

bool is_acceptable(const char* what, std::string_view text, bool may_be_empty) {
  if (text.empty() && !may_be_empty) {
    D3_ERROR("Failed to store the account: its %C is empty\n", what);
    return false;
  }
  if (has_control_characters(text)) {
    D3_ERROR("Failed to store the account: its %C holds control characters\n", what);
    return false;
  }
  return true;
}

}  // namespace

Instance_Manager* Instance_Manager::instance() { return current_manager.load(); }

Instance_Manager::Instance_Manager() = default;
Instance_Manager::~Instance_Manager() = default;

bool Instance_Manager::open() {
  std::vector<Instance> instances;
  Accounts accounts;
  const bool instances_readable = Instance_Store::load(instances);
  const bool accounts_readable = Account_Store::load(accounts);
  const std::lock_guard guard(mutex_);
  registry_.clear();
  for (Instance& instance : instances) {
    Key key(instance.type, instance.name);
    registry_[std::move(key)] = std::make_shared<Instance>(std::move(instance));
  }
  accounts_ = std::move(accounts);
  instances_readable_ = instances_readable;
  accounts_readable_ = accounts_readable;
  return instances_readable && accounts_readable;
}

Instance_Manager::Instance_var Instance_Manager::find(const char* type, const char* name) const {
  if (type == nullptr || name == nullptr) return nullptr;
  const std::lock_guard guard(mutex_);
  const auto found = registry_.find({type, name});
  return found == registry_.end() ? nullptr : found->second;
}

std::vector<Instance_Manager::Instance_var> Instance_Manager::list(const std::string& type) const {
  const std::lock_guard guard(mutex_);
  std::vector<Instance_var> found;
  for (const auto& [key, instance] : registry_)
    if (key.first == type) found.push_back(instance);
  return found;
}

bool Instance_Manager::change_instances(const std::function<void(Registry&)>& change) {
  const std::lock_guard one_change(change_mutex_);
  Registry changed;
  {
    const std::lock_guard guard(mutex_);
    if (!instances_readable_) {
      D3_ERROR("The file '%C' could not be read and is not overwritten\n", Instance_Store::path().c_str());
      return false;
    }
    changed = registry_;
  }
  change(changed);
  std::vector<Instance> rows;
  for (const auto& [key, instance] : changed) rows.push_back(*instance);
  if (!Instance_Store::save(rows)) return false;
  const std::lock_guard guard(mutex_);
  registry_.swap(changed);
  return true;
}

bool Instance_Manager::store(const Instances& instances) {
  return change_instances([&instances](Registry& registry) {
    for (const auto& [name, instance] : instances) {
      if (instance == nullptr) continue;
      auto kept = std::make_shared<Instance>(*instance);
      Instance_var& place = registry[{kept->type, kept->name}];
      if (place != nullptr && kept->uuid.empty()) kept->uuid = place->uuid;
      if (place != nullptr && kept->logon_options.empty()) kept->logon_options = place->logon_options;
      if (kept->uuid.empty()) kept->uuid = make_uuid();
      place = std::move(kept);
    }
  });
}

bool Instance_Manager::remove(const std::string& type, const std::string& name) {
  // The accounts first: an account without its instance would lie there unseen.
  const auto of_instance = [&](const Account_Key& key) { return std::get<0>(key) == type && std::get<1>(key) == name; };
  if (!change_accounts([&](Accounts& accounts) {
        std::erase_if(accounts, [&](const auto& entry) { return of_instance(entry.first); });
      }))
    return false;
  return change_instances([&](Registry& registry) { registry.erase({type, name}); });
}

int Instance_Manager::get_account(const char* type, const char* instance_manager_name, const char* uid,
                                  std::string& username, secure_string& password, std::string* extra) const {
  if (type == nullptr || instance_manager_name == nullptr) {
    D3_ERROR("No account can be looked up without a type and an instance name\n");
    return -1;
  }
  {
    const std::lock_guard guard(mutex_);
    auto found = accounts_.find({type, instance_manager_name, uid == nullptr ? "" : uid});
    if (found == accounts_.end()) found = accounts_.find({type, instance_manager_name, ""});
    if (found != accounts_.end()) {
      username = found->second.username;
      password = found->second.password;
      if (extra != nullptr) *extra = found->second.extra;
      return 0;
    }
  }
  D3_ERROR("No account is stored for the instance '%C' of type '%C': give a user and a password for it\n",
           platform::cut_for_log(instance_manager_name).c_str(), platform::cut_for_log(type).c_str());
  return -1;
}

bool Instance_Manager::change_accounts(const std::function<void(Accounts&)>& change) {
  const std::lock_guard one_change(change_mutex_);
  Accounts before;
  {
    const std::lock_guard guard(mutex_);
    if (!accounts_readable_) {
      D3_ERROR("The accounts '%C' could not be read and are not overwritten\n", Account_Store::path().c_str());
      return false;
    }
    before = accounts_;
  }
  Accounts changed = before;
  change(changed);
  if (changed == before) return true;
  if (!Account_Store::save(changed)) return false;
  const std::lock_guard guard(mutex_);
  accounts_.swap(changed);
  return true;
}

bool Instance_Manager::set_account(const std::string& type, const std::string& name, const std::string& uid,
                                   const std::string& username, const secure_string& password,
                                   const std::string& extra) {
  if (!is_acceptable("type", type, false) || !is_acceptable("instance name", name, false) ||
      !is_acceptable("uid", uid, true) || !is_acceptable("user name", username, false) ||
      !is_acceptable("password", password.view(), false))
    return false;
  return change_accounts([&](Accounts& accounts) { accounts[{type, name, uid}] = Account{username, password, extra}; });
}

bool Instance_Manager::remove_account(const std::string& type, const std::string& name, const std::string& uid) {
  return change_accounts([&](Accounts& accounts) { accounts.erase({type, name, uid}); });
}

Scoped_Instance_Manager::Scoped_Instance_Manager(Instance_Manager& manager)
    : previous_(current_manager.exchange(&manager)) {}
Scoped_Instance_Manager::~Scoped_Instance_Manager() { current_manager.store(previous_); }
