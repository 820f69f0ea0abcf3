#include "backupd/pools/beneath.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "platform/file_root.h"
#include "platform/files.h"

namespace backupd {

namespace {

constexpr std::size_t name_limit_bytes = 255;
constexpr int directory_flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

struct Close_Directory {
  void operator()(DIR* directory) const { ::closedir(directory); }
};

/// The entry is durable before anything is put below it.
bool make_directory(const platform::Unique_Descriptor& parent, const std::string& name) {
  if (::mkdirat(parent.get(), name.c_str(), platform::mode_directory) != 0 && errno != EEXIST) return false;
  return ::fsync(parent.get()) == 0;
}

}  // namespace

bool is_entry_name(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.size() <= name_limit_bytes &&
         name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
}

platform::Unique_Descriptor open_beneath(const std::string& root, const std::vector<std::string>& path,
                                         Missing missing) {
  platform::Unique_Descriptor at(
      ::open(platform::File_Root::current().real(root).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (const std::string& name : path) {
    if (!at.valid()) return at;
    platform::Unique_Descriptor below(::openat(at.get(), name.c_str(), directory_flags));
    if (!below.valid() && errno == ENOENT && missing == Missing::make) {
      if (!make_directory(at, name)) return platform::Unique_Descriptor();
      below.reset(::openat(at.get(), name.c_str(), directory_flags));
    }
    at = std::move(below);
  }
  return at;
}

bool list_entries(const platform::Unique_Descriptor& directory, std::vector<Entry>& entries) {
  const int own = ::openat(directory.get(), ".", directory_flags);
  if (own < 0) return false;
  const std::unique_ptr<DIR, Close_Directory> open(::fdopendir(own));  // owns the descriptor from here on
  if (!open) {
    ::close(own);
    return false;
  }
  for (errno = 0; const dirent* found = ::readdir(open.get()); errno = 0) {
    const std::string name = found->d_name;
    struct stat status {};
    if (name == "." || name == ".." || ::fstatat(directory.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
      continue;
    if (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode))
      entries.push_back(
          {name, S_ISDIR(status.st_mode), S_ISDIR(status.st_mode) ? 0 : static_cast<std::uint64_t>(status.st_size)});
  }
  if (errno != 0) return false;
  std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.name < b.name; });
  return true;
}

}  // namespace backupd
