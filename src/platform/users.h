#pragma once

#include <sys/types.h>

#include <string>

namespace platform {

struct Os_User {
  std::string name;
  uid_t uid = 0;
  gid_t gid = 0;
  std::string home;
};

/// Looks a user up: in etc/passwd below the file root when there is a root, else in the system's database.
[[nodiscard]] bool find_user(const std::string& name, Os_User& user);
/// Looks a group up the same way (etc/group).
[[nodiscard]] bool find_group(const std::string& name, gid_t& gid);

}  // namespace platform
