#include "backupd/pools/pool_storage.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "backupd/pools/beneath.h"
#include "platform/files.h"
#include "platform/log.h"
#include "scrt/uuid.h"

namespace backupd {

namespace {

constexpr char upload_prefix[] = ".d3-upload-";
constexpr char file_scheme[] = "file://";

std::string text_of(const Pool_Storage::Path& path) {
  std::string text;
  for (const std::string& segment : path) text += (text.empty() ? "" : "/") + segment;
  return "\"" + platform::cut_for_log(text) + "\"";
}

Outcome check_path(const Pool_Storage::Path& path, bool root_allowed) {
  const bool sound = std::all_of(path.begin(), path.end(), [](const std::string& segment) {
    return is_entry_name(segment) && !segment.starts_with(upload_prefix);
  });
  if (sound && (root_allowed || !path.empty())) return {};
  return Outcome::refuse(Outcome::bad_request, "the path " + text_of(path) +
                                                   " is not one of a pool; it has an empty, \".\" "
                                                   "or \"..\" segment, or one that is no file name");
}

Outcome not_there(const Pool_Storage::Path& path) {
  return Outcome::refuse(Outcome::not_found, "there is nothing at " + text_of(path) + " in the pool");
}

/// The refusal for the errno of a failed operation; what the operator must know is logged.
Outcome failure(const Pool& pool, const Pool_Storage::Path& path, const char* what) {
  const int cause = errno;
  if (cause == ENOENT || cause == ENOTDIR) return not_there(path);
  if (cause == ELOOP) return Outcome::refuse(Outcome::forbidden, "a link stands in the path " + text_of(path));
  D3_ERROR("Failed to %C %C in the pool %C: %C\n", what, text_of(path).c_str(), pool.name.c_str(),
           std::strerror(cause));
  if (cause == ENOSPC || cause == EDQUOT)
    return Outcome::refuse(Outcome::pool_full, "the pool \"" + pool.name + "\" is full; make room in it");
  // Not a failure of this server: the same again would be refused again.
  if (cause == EACCES || cause == EPERM || cause == EROFS)
    return Outcome::refuse(Outcome::forbidden, std::string("cannot ") + what + " " + text_of(path) +
                                                   ": the server is not allowed to in the pool \"" + pool.name +
                                                   "\" (" + std::strerror(cause) +
                                                   "); see to the rights of its directory, or choose another pool");
  return Outcome::refuse(Outcome::internal, std::string("cannot ") + what + " " + text_of(path) + ": " +
                                                std::strerror(cause) + "; see the server's log");
}

Pool_Storage::Path parent_of(const Pool_Storage::Path& path) { return {path.begin(), path.end() - 1}; }

/// Puts `from` at `to` unless something is there.
bool rename_without_replacing(int directory, const std::string& from, const std::string& to) {
  if (::renameat2(directory, from.c_str(), directory, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  // A file system without that operation.
  if (::linkat(directory, from.c_str(), directory, to.c_str(), 0) != 0) return false;
  return ::unlinkat(directory, from.c_str(), 0) == 0;
}

class File_Content : public net::Body_Source {
 public:
  File_Content(platform::Unique_Descriptor file, std::uint64_t bytes) : file_(std::move(file)), bytes_(bytes) {}

  ssize_t read(char* buffer, std::size_t size) override {
    ssize_t got = 0;
    do got = ::read(file_.get(), buffer, size);
    while (got < 0 && errno == EINTR);
    if (got < 0) D3_ERROR("Failed to read an object of a pool: %C\n", std::strerror(errno));
    return got;
  }
  [[nodiscard]] std::optional<std::uint64_t> size() const override { return bytes_; }

 private:
  platform::Unique_Descriptor file_;
  std::uint64_t bytes_;
};

std::uint64_t count_bytes(const platform::Unique_Descriptor& directory) {
  std::vector<Entry> entries;
  std::uint64_t sum = 0;
  if (!list_entries(directory, entries)) return 0;
  for (const Entry& entry : entries) {
    sum += entry.size;
    if (!entry.directory) continue;
    const platform::Unique_Descriptor below(
        ::openat(directory.get(), entry.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (below.valid()) sum += count_bytes(below);
  }
  return sum;
}

/// Takes the lock of every file that it can open; false when somebody holds one: writers keep a lock on the file that
/// they write, here as on pools that agents write to directly.
bool lock_files(const platform::Unique_Descriptor& directory, const std::vector<Entry>& entries,
                std::vector<platform::Unique_Descriptor>& locks) {
  for (const Entry& entry : entries) {
    if (entry.directory) continue;
    platform::Unique_Descriptor file(
        ::openat(directory.get(), entry.name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file.valid()) continue;
    if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) return false;
    locks.push_back(std::move(file));
  }
  return true;
}

void remove_leftovers_in(const platform::Unique_Descriptor& directory) {
  std::vector<Entry> entries;
  if (!list_entries(directory, entries)) return;
  for (const Entry& entry : entries) {
    if (!entry.directory) {
      if (entry.name.starts_with(upload_prefix)) ::unlinkat(directory.get(), entry.name.c_str(), 0);
      continue;
    }
    const platform::Unique_Descriptor below(
        ::openat(directory.get(), entry.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (below.valid()) remove_leftovers_in(below);
  }
}

}  // namespace

std::string pool_directory(const Pool& pool) {
  if (pool.served()) return pool.directory;
  const std::string scheme(file_scheme);
  return pool.url.starts_with(scheme) ? pool.url.substr(scheme.size()) : std::string();
}

Outcome prepare_pool(const Pool& pool) {
  if (!pool.served() || platform::mkdir_p(pool.directory.c_str(), platform::mode_directory) == 0) return {};
  return Outcome::refuse(Outcome::invalid, "the directory " + pool.directory + " cannot be made on the server: " +
                                               std::strerror(errno) + "; choose another or make it yourself");
}

/// One object on its way in: a hidden file beside its place, gone again unless it was published.
class Pool_Storage::Upload : public net::Body_Sink {
 public:
  Upload(platform::Unique_Descriptor directory, std::uint64_t room)
      : directory_(std::move(directory)), name_(upload_prefix + make_uuid()), room_(room) {
    file_.reset(::openat(directory_.get(), name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                         platform::mode_sap_file));
    made_ = file_.valid();
    // Tells an object on its way from what a killed program left; see remove_dataset.
    if (made_) static_cast<void>(::flock(file_.get(), LOCK_EX | LOCK_NB));
  }
  ~Upload() override {
    if (made_) ::unlinkat(directory_.get(), name_.c_str(), 0);
  }

  [[nodiscard]] bool valid() const { return file_.valid(); }
  [[nodiscard]] std::uint64_t bytes() const { return bytes_; }
  /// 0 while every byte could be written.
  [[nodiscard]] int error() const { return error_; }

  bool write(const char* data, std::size_t size) override {
    if (size > room_ - bytes_) error_ = ENOSPC;
    while (size > 0 && error_ == 0) {
      const ssize_t done = ::write(file_.get(), data, size);
      if (done < 0 && errno == EINTR) continue;
      if (done < 0) {
        error_ = errno;
        break;
      }
      data += done;
      size -= static_cast<std::size_t>(done);
      bytes_ += static_cast<std::uint64_t>(done);
    }
    return error_ == 0;
  }

  /// Durable under its name when it returns true; else errno tells why.
  bool publish(const std::string& name) {
    if (::fsync(file_.get()) != 0 || !rename_without_replacing(directory_.get(), name_, name)) return false;
    made_ = false;
    return ::fsync(directory_.get()) == 0;
  }

 private:
  platform::Unique_Descriptor directory_;
  const std::string name_;
  platform::Unique_Descriptor file_;
  bool made_ = false;
  const std::uint64_t room_;
  std::uint64_t bytes_ = 0;
  int error_ = 0;
};

Outcome Pool_Storage::put(const Pool& pool, const Path& path, const Receive& receive) {
  if (Outcome outcome = check_path(path, false); !outcome.ok()) return outcome;
  platform::Unique_Descriptor directory = open_beneath(pool_directory(pool), parent_of(path), Missing::make);
  if (!directory.valid()) return failure(pool, path, "store");
  const Outcome exists = Outcome::refuse(
      Outcome::conflict, "there is an object at " + text_of(path) + " already; remove it first or choose another name");
  struct stat status {};
  if (::fstatat(directory.get(), path.back().c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return exists;
  const std::uint64_t used = used_bytes(pool);
  const std::uint64_t limit =
      pool.max_bytes == 0 ? std::numeric_limits<std::uint64_t>::max() : static_cast<std::uint64_t>(pool.max_bytes);
  Upload upload(std::move(directory), limit - std::min(limit, used));
  if (!upload.valid()) return failure(pool, path, "store");
  if (!receive(upload)) {
    errno = upload.error();
    if (upload.error() != 0) return failure(pool, path, "store");
    return Outcome::refuse(Outcome::bad_request, "the transfer of " + text_of(path) + " was cut; nothing is stored");
  }
  if (!upload.publish(path.back())) return errno == EEXIST ? exists : failure(pool, path, "store");
  add_used(pool, static_cast<std::int64_t>(upload.bytes()));
  return {};
}

Outcome Pool_Storage::open(const Pool& pool, const Path& path, std::unique_ptr<net::Body_Source>& content) {
  if (Outcome outcome = check_path(path, false); !outcome.ok()) return outcome;
  const platform::Unique_Descriptor directory = open_beneath(pool_directory(pool), parent_of(path), Missing::fail);
  if (!directory.valid()) return failure(pool, path, "read");
  platform::Unique_Descriptor file(
      ::openat(directory.get(), path.back().c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!file.valid() || ::fstat(file.get(), &status) != 0) return failure(pool, path, "read");
  if (!S_ISREG(status.st_mode)) return not_there(path);
  content = std::make_unique<File_Content>(std::move(file), static_cast<std::uint64_t>(status.st_size));
  return {};
}

Outcome Pool_Storage::size(const Pool& pool, const Path& path, std::uint64_t& bytes) {
  std::unique_ptr<net::Body_Source> content;
  if (Outcome outcome = open(pool, path, content); !outcome.ok()) return outcome;
  bytes = content->size().value_or(0);
  return {};
}

Outcome Pool_Storage::remove(const Pool& pool, const Path& path) {
  if (Outcome outcome = check_path(path, false); !outcome.ok()) return outcome;
  const platform::Unique_Descriptor directory = open_beneath(pool_directory(pool), parent_of(path), Missing::fail);
  struct stat status {};
  if (!directory.valid() || ::fstatat(directory.get(), path.back().c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
    return failure(pool, path, "remove");
  const bool is_directory = S_ISDIR(status.st_mode);
  if (::unlinkat(directory.get(), path.back().c_str(), is_directory ? AT_REMOVEDIR : 0) != 0) {
    if (errno == ENOTEMPTY || errno == EEXIST)
      return Outcome::refuse(Outcome::conflict,
                             "the directory " + text_of(path) + " is not empty; remove what is in it first");
    return failure(pool, path, "remove");
  }
  if (::fsync(directory.get()) != 0) return failure(pool, path, "remove");
  if (S_ISREG(status.st_mode)) add_used(pool, -static_cast<std::int64_t>(status.st_size));
  return {};
}

Outcome Pool_Storage::list(const Pool& pool, const Path& path, json_spirit::Array& rows) {
  if (Outcome outcome = check_path(path, true); !outcome.ok()) return outcome;
  const platform::Unique_Descriptor directory = open_beneath(pool_directory(pool), path, Missing::fail);
  std::vector<Entry> entries;
  if (!directory.valid() || !list_entries(directory, entries)) return failure(pool, path, "list");
  for (const Entry& entry : entries)
    if (!entry.name.starts_with(upload_prefix))
      rows.emplace_back(
          json_spirit::Object{{"name", entry.name}, {"directory", entry.directory}, {"size", entry.size}});
  return {};
}

Pool_Storage::Removal Pool_Storage::remove_dataset(const Pool& pool, const Path& path) {
  if (!check_path(path, false).ok()) return Removal::failed;
  const platform::Unique_Descriptor parent = open_beneath(pool_directory(pool), parent_of(path), Missing::fail);
  const platform::Unique_Descriptor directory = open_beneath(pool_directory(pool), path, Missing::fail);
  std::vector<Entry> entries;
  std::vector<platform::Unique_Descriptor> locks;
  if (!parent.valid() || !directory.valid() || !list_entries(directory, entries)) return Removal::failed;
  if (!lock_files(directory, entries, locks)) return Removal::in_use;
  for (const Entry& entry : entries) {
    if (entry.directory) continue;
    if (::unlinkat(directory.get(), entry.name.c_str(), 0) == 0)
      add_used(pool, -static_cast<std::int64_t>(entry.size));
    else
      D3_ERROR("Failed to remove %C from the pool %C: %C\n", entry.name.c_str(), pool.name.c_str(),
               std::strerror(errno));
  }
  if (::unlinkat(parent.get(), path.back().c_str(), AT_REMOVEDIR) == 0) return Removal::done;
  D3_ERROR("Failed to remove the dataset %C from the pool %C: %C\n", text_of(path).c_str(), pool.name.c_str(),
           std::strerror(errno));
  return Removal::failed;
}

void Pool_Storage::remove_leftovers(const Pool& pool) {
  const platform::Unique_Descriptor directory = open_beneath(pool_directory(pool), {}, Missing::fail);
  if (directory.valid())
    remove_leftovers_in(directory);
  else
    D3_ERROR("The directory %C of the pool %C cannot be opened: %C\n", pool_directory(pool).c_str(), pool.name.c_str(),
             std::strerror(errno));
}

std::uint64_t Pool_Storage::used_bytes(const Pool& pool) {
  if (pool.max_bytes == 0) return 0;
  const std::lock_guard lock(mutex_);
  const auto known = used_.find(pool.uuid);
  if (known != used_.end()) return known->second;
  const platform::Unique_Descriptor directory = open_beneath(pool_directory(pool), {}, Missing::fail);
  return used_[pool.uuid] = directory.valid() ? count_bytes(directory) : 0;
}

void Pool_Storage::add_used(const Pool& pool, std::int64_t bytes) {
  const std::lock_guard lock(mutex_);
  const auto known = used_.find(pool.uuid);
  if (known == used_.end()) return;
  const auto taken = static_cast<std::uint64_t>(-bytes);
  known->second =
      bytes >= 0 ? known->second + static_cast<std::uint64_t>(bytes) : known->second - std::min(known->second, taken);
}

}  // namespace backupd
