#include "platform/users.h"

#include <grp.h>
#include <pwd.h>

#include <cstdio>
#include <memory>
#include <vector>

#include "platform/file_root.h"

namespace platform {

namespace {

constexpr std::size_t entry_buffer_bytes = 16384;

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

File open_below_root(const char* path) {
  return File(std::fopen(File_Root::current().real(path).c_str(), "re"), &std::fclose);
}

void fill(Os_User& user, const passwd& entry) {
  user.name = entry.pw_name;
  user.uid = entry.pw_uid;
  user.gid = entry.pw_gid;
  user.home = entry.pw_dir;
}

}  // namespace

bool find_user(const std::string& name, Os_User& user) {
  std::vector<char> buffer(entry_buffer_bytes);
  passwd entry{};
  passwd* found = nullptr;
  if (File_Root::current().prefix().empty()) {
    if (::getpwnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) return false;
    fill(user, *found);
    return true;
  }
  const File file = open_below_root("/etc/passwd");
  if (!file) return false;
  while (::fgetpwent_r(file.get(), &entry, buffer.data(), buffer.size(), &found) == 0)
    if (name == found->pw_name) {
      fill(user, *found);
      return true;
    }
  return false;
}

bool find_group(const std::string& name, gid_t& gid) {
  std::vector<char> buffer(entry_buffer_bytes);
  group entry{};
  group* found = nullptr;
  if (File_Root::current().prefix().empty()) {
    if (::getgrnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) return false;
    gid = found->gr_gid;
    return true;
  }
  const File file = open_below_root("/etc/group");
  if (!file) return false;
  while (::fgetgrent_r(file.get(), &entry, buffer.data(), buffer.size(), &found) == 0)
    if (name == found->gr_name) {
      gid = found->gr_gid;
      return true;
    }
  return false;
}

}  // namespace platform
