#include "platform/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>

#include "platform/file_root.h"
#include "platform/users.h"

namespace platform {

namespace {

std::string real(std::string_view path) { return File_Root::current().real(path); }

/// Closes on scope end without touching errno.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    const int saved = errno;
    if (fd_ >= 0) ::close(fd_);
    errno = saved;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  [[nodiscard]] int get() const { return fd_; }

 private:
  int fd_;
};

bool write_all(int fd, std::string_view content) {
  while (!content.empty()) {
    const ssize_t written = ::write(fd, content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    content.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

bool set_mode_and_group(int fd, mode_t mode, const char* group) {
  if (group != nullptr) {
    gid_t gid = 0;
    if (!find_group(group, gid)) {
      errno = ENOENT;
      return false;
    }
    // Without the right to give files away the group stays the writer's own: the mode then decides who reads.
    if (::fchown(fd, static_cast<uid_t>(-1), gid) != 0 && errno != EPERM) return false;
  }
  return ::fchmod(fd, mode) == 0;
}

/// Ends the name of a file that is written beside another one; before it stand the writer's process and a number.
constexpr const char* beside_end = ".tmp";

std::string name_beside(const std::string& path) {
  static std::atomic<unsigned> counter{0};
  const std::size_t slash = path.rfind('/');
  const std::size_t start = slash == std::string::npos ? 0 : slash + 1;
  char suffix[48];
  std::snprintf(suffix, sizeof suffix, ".%ld.%u%s", static_cast<long>(::getpid()), counter.fetch_add(1), beside_end);
  return path.substr(0, start) + "." + path.substr(start) + suffix;
}

/// Takes ".NUMBER" from the end of `name`.
bool take_number(std::string_view& name, long& number) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos) return false;
  const char* const first = name.data() + dot + 1;
  const char* const last = name.data() + name.size();
  if (const auto [end, failure] = std::from_chars(first, last, number); failure != std::errc() || end != last)
    return false;
  name.remove_suffix(name.size() - dot);
  return number >= 0;
}

/// The file beside which the file of this name is written, and the process that does; "" for any other file.
std::string_view written_beside(std::string_view name, pid_t& writer) {
  long number = 0;
  long process = 0;
  if (!name.starts_with('.') || !name.ends_with(beside_end)) return {};
  name.remove_suffix(std::strlen(beside_end));
  if (!take_number(name, number) || !take_number(name, process) || name.size() < 2) return {};
  writer = static_cast<pid_t>(process);
  return name.substr(1);
}

/// Whether another process of this id runs; one of another user, too.
bool runs_elsewhere(pid_t process) { return process != ::getpid() && (::kill(process, 0) == 0 || errno != ESRCH); }

/// Opens a new file beside `path`; what a cut off process of the same id left there is in nobody's way.
int open_beside(const std::string& path, std::string& where) {
  for (;;) {
    where = real(name_beside(path));
    const int fd = ::open(where.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode_private_file);
    if (fd >= 0 || errno != EEXIST) return fd;
  }
}

std::string parent_of(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

/// Of the file `only`, of all files of the directory when it is empty.
bool remove_left_beside(const std::string& directory, const std::string& only, std::vector<std::string>& removed) {
  std::vector<std::string> names;
  removed.clear();
  if (!list_directory(directory, names)) return false;
  int failure = 0;
  for (const std::string& name : names) {
    pid_t writer = 0;
    const std::string_view file = written_beside(name, writer);
    if (writer <= 0 || runs_elsewhere(writer) || (!only.empty() && file != only)) continue;
    const std::string path = directory + '/' + name;
    if (remove_file(path))
      removed.push_back(path);
    else if (failure == 0)
      failure = errno;
  }
  errno = failure;
  return failure == 0;
}

}  // namespace

bool is_regular_file(const char* path) {
  struct stat status {};
  return ::stat(real(path).c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool is_directory(const char* path) {
  struct stat status {};
  return ::stat(real(path).c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool is_symbolic_link(const char* path) {
  struct stat status {};
  const std::string where = real(path);
  errno = 0;
  return ::lstat(where.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

ssize_t read_link(const char* path, char* buffer, std::size_t size) {
  char text[path_buffer_bytes];
  const ssize_t length = ::readlink(real(path).c_str(), text, sizeof text);
  if (length < 0) return -1;
  const std::string documented =
      File_Root::current().documented(std::string_view(text, static_cast<std::size_t>(length)));
  const std::size_t kept = std::min(documented.size(), size);
  std::memcpy(buffer, documented.data(), kept);
  return static_cast<ssize_t>(kept);
}

int make_link(const char* target, const char* path) { return ::symlink(real(target).c_str(), real(path).c_str()); }

char* dirname_r(const char* path, char* buffer, std::size_t size, char separator) {
  const char* last = std::strrchr(path, separator);
  std::string_view directory = last == nullptr ? std::string_view(".")
                               : last == path  ? std::string_view(path, 1)
                                               : std::string_view(path, static_cast<std::size_t>(last - path));
  if (directory.size() >= size) {
    errno = ENAMETOOLONG;
    return nullptr;
  }
  std::memcpy(buffer, directory.data(), directory.size());
  buffer[directory.size()] = '\0';
  return buffer;
}

int mkdir_p(const char* path, mode_t mode, const Made_Directory& made) {
  const std::string_view whole(path);
  for (std::size_t at = 1; at <= whole.size(); ++at) {
    if (at != whole.size() && whole[at] != '/') continue;
    const std::string step(whole.substr(0, at));
    const std::string where = real(step);
    if (::mkdir(where.c_str(), mode) == 0) {
      // The umask may have taken bits away.
      if (::chmod(where.c_str(), mode) != 0) return -1;
      if (made) made(step.c_str());
    } else if (errno == EEXIST || errno == EISDIR || errno == EROFS) {
      const int saved = errno;
      if (!is_directory(step.c_str())) {
        errno = saved == EROFS ? EROFS : ENOTDIR;
        return -1;
      }
    } else {
      return -1;
    }
  }
  return 0;
}

bool write_file_durably(const std::string& path, std::string_view content, mode_t mode, const char* group) {
  std::string where;
  {
    const Descriptor file(open_beside(path, where));
    if (file.get() < 0) return false;
    if (!write_all(file.get(), content) || !set_mode_and_group(file.get(), mode, group) || ::fsync(file.get()) != 0) {
      const int saved = errno;
      ::unlink(where.c_str());
      errno = saved;
      return false;
    }
  }
  if (::rename(where.c_str(), real(path).c_str()) != 0) {
    const int saved = errno;
    ::unlink(where.c_str());
    errno = saved;
    return false;
  }
  return sync_directory(parent_of(path));
}

bool remove_unfinished_writes(const std::string& directory, std::vector<std::string>& removed) {
  return remove_left_beside(directory, "", removed);
}

bool remove_unfinished_writes_of(const std::string& path, std::vector<std::string>& removed) {
  return remove_left_beside(parent_of(path), path.substr(path.rfind('/') + 1), removed);
}

bool read_file(const std::string& path, std::string& content, std::size_t limit_bytes) {
  const Descriptor file(::open(real(path).c_str(), O_RDONLY | O_CLOEXEC));
  if (file.get() < 0) return false;
  std::string read_so_far;
  char buffer[65536];
  for (;;) {
    const ssize_t got = ::read(file.get(), buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) break;
    if (read_so_far.size() + static_cast<std::size_t>(got) > limit_bytes) {
      errno = EFBIG;
      return false;
    }
    read_so_far.append(buffer, static_cast<std::size_t>(got));
  }
  content = std::move(read_so_far);
  return true;
}

bool list_directory(const std::string& path, std::vector<std::string>& names) {
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(real(path).c_str()), &::closedir);
  if (!directory) return false;
  std::vector<std::string> found;
  errno = 0;
  while (const dirent* entry = ::readdir(directory.get())) {
    const std::string_view name(entry->d_name);
    if (name != "." && name != "..") found.emplace_back(name);
  }
  if (errno != 0) return false;
  std::sort(found.begin(), found.end());
  names = std::move(found);
  return true;
}

bool rename_without_replacing(const std::string& path, const std::string& new_path) {
  const std::string from = real(path);
  const std::string to = real(new_path);
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  // A file system without that operation: a link is refused just so where the name is taken.
  if (::link(from.c_str(), to.c_str()) != 0) return false;
  if (::unlink(from.c_str()) == 0) return true;
  const int saved = errno;
  ::unlink(to.c_str());
  errno = saved;
  return false;
}

bool remove_file(const std::string& path) { return ::unlink(real(path).c_str()) == 0 || errno == ENOENT; }

bool sync_directory(const std::string& path) {
  const Descriptor directory(::open(real(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return directory.get() >= 0 && ::fsync(directory.get()) == 0;
}

std::string encode_file_name(std::string_view name) {
  static constexpr char digits[] = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : name) {
    const bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-';
    if (plain) {
      encoded += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      encoded += '%';
      encoded += digits[byte >> 4];
      encoded += digits[byte & 15];
    }
  }
  return encoded;
}

}  // namespace platform
