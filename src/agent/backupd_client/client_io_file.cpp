#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "agent/backupd_client/client_io_transport.h"
#include "net/http_string.h"
#include "platform/file_root.h"
#include "platform/files.h"
#include "platform/unique_descriptor.h"
#include "scrt/uuid.h"

namespace {

/// The members of the SAP group back up into one pool, each system as its own user.
constexpr mode_t pool_directory_mode = 0770;
/// How much is handed to the disk at once while data flows. One window is written back while the next one fills, so
/// that the last sync has at most two windows to wait for.
constexpr std::uint64_t writeback_window_bytes = 8U << 20;
constexpr const char* temporary_suffix = ".tmp";

std::string real(const std::string& path) { return platform::File_Root::current().real(path); }

/// Failures of network file systems that pass by.
bool is_transient(int error) {
  return error == ESTALE || error == ETIMEDOUT || error == EAGAIN || error == ENOTCONN || error == EHOSTUNREACH ||
         error == ENETUNREACH || error == ENETDOWN;
}

Client_IO_Failure failure_of(const std::string& what, const std::string& path, int error) {
  return {what + " " + path + ": " + std::strerror(error), is_transient(error)};
}

std::string parent_of(const std::string& path) { return path.substr(0, path.rfind('/')); }

/// Directories are made durable with their parents: an object in a directory that a power loss takes away is lost.
int make_directories_durably(const std::string& path) {
  bool synced = true;
  const int result = platform::mkdir_p(path.c_str(), pool_directory_mode, [&synced](const char* made) {
    synced = platform::sync_directory(parent_of(made)) && synced;
  });
  return result == 0 && synced ? 0 : -1;
}

class File_Writer : public Pool_Writer {
 public:
  File_Writer(platform::Unique_Descriptor file, std::string temporary, std::string path)
      : file_(std::move(file)), temporary_(std::move(temporary)), path_(std::move(path)) {}
  ~File_Writer() override {
    if (!temporary_.empty()) ::unlink(real(temporary_).c_str());
  }

  bool write(const void* data, std::size_t size) override {
    const char* at = static_cast<const char*>(data);
    while (size > 0) {
      const ssize_t written = ::write(file_.get(), at, size);
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) return fail("cannot write", written < 0 ? errno : EIO);
      at += written;
      size -= static_cast<std::size_t>(written);
      written_ += static_cast<std::uint64_t>(written);
    }
    return start_writeback();
  }

  bool commit() override {
    if (temporary_.empty()) return fail("cannot commit", EINVAL);
    if (::fdatasync(file_.get()) != 0) return fail("cannot sync", errno);
    if (::fchmod(file_.get(), platform::mode_sap_file) != 0) return fail("cannot set the mode of", errno);
    if (!rename_without_replacing()) return fail("cannot commit", errno);
    temporary_.clear();
    if (platform::sync_directory(parent_of(path_))) return true;
    const int saved = errno;
    ::unlink(real(path_).c_str());
    return fail("cannot sync the directory of", saved);
  }

  [[nodiscard]] const std::string& error() const override { return failure_.text; }
  [[nodiscard]] bool transient() const override { return failure_.transient; }

 private:
  bool fail(const char* what, int error) {
    failure_ = failure_of(what, path_, error);
    return false;
  }

  /// Keeps the disk busy while data flows, and what it has written out of the page cache, which belongs to the
  /// database.
  bool start_writeback() {
    while (written_ - started_ >= writeback_window_bytes) {
      if (!sync_range(started_, SYNC_FILE_RANGE_WRITE)) return false;
      if (started_ >= writeback_window_bytes) {
        const std::uint64_t previous = started_ - writeback_window_bytes;
        constexpr unsigned wait_flags =
            SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;
        if (!sync_range(previous, wait_flags)) return false;
        ::posix_fadvise(file_.get(), static_cast<off_t>(previous), writeback_window_bytes, POSIX_FADV_DONTNEED);
      }
      started_ += writeback_window_bytes;
    }
    return true;
  }

  bool sync_range(std::uint64_t offset, unsigned flags) {
    const int result = ::sync_file_range(file_.get(), static_cast<off_t>(offset), writeback_window_bytes, flags);
    // A file system without the call still has the sync at the end.
    if (result == 0 || errno == ENOSYS || errno == EINVAL || errno == ESPIPE) return true;
    return fail("cannot write back", errno);
  }

  bool rename_without_replacing() {
    const std::string from = real(temporary_);
    const std::string to = real(path_);
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS) return false;
    // File systems without that flag: a link is refused when the name exists.
    if (::link(from.c_str(), to.c_str()) != 0) return false;
    ::unlink(from.c_str());
    return true;
  }

  platform::Unique_Descriptor file_;
  std::string temporary_;  ///< empty once committed
  std::string path_;
  std::uint64_t written_ = 0;
  std::uint64_t started_ = 0;  ///< bytes whose write-back has been started
  Client_IO_Failure failure_;
};

class File_Reader : public Pool_Reader {
 public:
  File_Reader(platform::Unique_Descriptor file, std::string path, std::uint64_t size)
      : file_(std::move(file)), path_(std::move(path)), size_(size) {}

  ssize_t read(void* data, std::size_t size) override {
    for (;;) {
      const ssize_t got = ::read(file_.get(), data, size);
      if (got >= 0) return got;
      if (errno == EINTR) continue;
      failure_ = failure_of("cannot read", path_, errno);
      return -1;
    }
  }
  [[nodiscard]] std::uint64_t size() const override { return size_; }
  [[nodiscard]] const std::string& error() const override { return failure_.text; }
  [[nodiscard]] bool transient() const override { return failure_.transient; }

 private:
  platform::Unique_Descriptor file_;
  std::string path_;
  std::uint64_t size_;
  Client_IO_Failure failure_;
};

class File_Transport : public Client_IO_Ex::Transport {
 public:
  explicit File_Transport(std::string directory) : directory_(std::move(directory)) {}

  bool connect() override {
    if (platform::is_directory(directory_.c_str())) return true;
    return fail(failure_of("cannot use the storage pool", directory_, errno == 0 ? ENOTDIR : errno));
  }

  bool get_dir(const std::string& path, std::vector<Pool_Entry>& entries) override {
    const std::string where = full(path);
    std::vector<std::string> names;
    if (!platform::list_directory(where, names)) return fail(failure_of("cannot list", where, errno));
    std::vector<Pool_Entry> found;
    for (const std::string& name : names) {
      if (name.front() == '.') continue;
      struct stat status {};
      if (::stat(real(where + "/" + name).c_str(), &status) != 0) continue;
      const bool directory = S_ISDIR(status.st_mode);
      found.push_back({name, directory, directory ? 0 : static_cast<std::uint64_t>(status.st_size)});
    }
    entries = std::move(found);
    return true;
  }

  bool remove(const std::string& path) override {
    const std::string where = full(path);
    const std::string target = real(where);
    struct stat status {};
    if (::lstat(target.c_str(), &status) != 0) return fail(failure_of("cannot remove", where, errno));
    const bool removed = S_ISDIR(status.st_mode) ? remove_directory(where) : ::unlink(target.c_str()) == 0;
    if (!removed || !platform::sync_directory(parent_of(where))) {
      return fail(failure_of("cannot remove", where, errno));
    }
    return true;
  }

  std::unique_ptr<Pool_Writer> create(const std::string& path) override {
    const std::string where = full(path);
    struct stat status {};
    if (::lstat(real(where).c_str(), &status) == 0) {
      fail(failure_of("cannot create", where, EEXIST));
      return nullptr;
    }
    const std::string directory = parent_of(where);
    if (make_directories_durably(directory) != 0) {
      fail(failure_of("cannot make the directory", directory, errno));
      return nullptr;
    }
    const std::string temporary = directory + "/." + make_uuid() + temporary_suffix;
    platform::Unique_Descriptor file(::open(
        real(temporary).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, platform::mode_private_file));
    // The lock tells a writer at work from a file that a killed one left.
    if (!file.valid() || ::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
      fail(failure_of("cannot create", where, errno));
      if (file.valid()) ::unlink(real(temporary).c_str());
      return nullptr;
    }
    return std::make_unique<File_Writer>(std::move(file), temporary, where);
  }

  std::unique_ptr<Pool_Reader> open(const std::string& path) override {
    const std::string where = full(path);
    platform::Unique_Descriptor file(::open(real(where).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!file.valid() || ::fstat(file.get(), &status) != 0) {
      fail(failure_of("cannot open", where, errno));
      return nullptr;
    }
    if (!S_ISREG(status.st_mode)) {
      fail(failure_of("cannot open", where, S_ISDIR(status.st_mode) ? EISDIR : EINVAL));
      return nullptr;
    }
    ::posix_fadvise(file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    return std::make_unique<File_Reader>(std::move(file), where, static_cast<std::uint64_t>(status.st_size));
  }

  bool exists(const std::string& path) override {
    const std::string where = full(path);
    struct stat status {};
    if (::stat(real(where).c_str(), &status) == 0) return true;
    return fail(failure_of("cannot find", where, errno));
  }

 private:
  [[nodiscard]] std::string full(const std::string& path) const {
    return path.empty() ? directory_ : directory_ + "/" + path;
  }

  /// Files that killed writers left do not keep a directory alive; those of a living writer do.
  static bool remove_directory(const std::string& where) {
    const std::string target = real(where);
    if (::rmdir(target.c_str()) == 0) return true;
    std::vector<std::string> names;
    if (errno != ENOTEMPTY || !platform::list_directory(where, names)) return false;
    for (const std::string& name : names) {
      if (name.front() != '.' || !name.ends_with(temporary_suffix)) continue;
      const std::string leftover = target + "/" + name;
      const platform::Unique_Descriptor file(::open(leftover.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
      if (file.valid() && ::flock(file.get(), LOCK_EX | LOCK_NB) == 0) ::unlink(leftover.c_str());
    }
    return ::rmdir(target.c_str()) == 0;
  }

  std::string directory_;
};

}  // namespace

std::unique_ptr<Client_IO_Ex::Transport> make_file_transport(const std::string& url) {
  constexpr std::string_view scheme = "file://";
  std::string directory = http_decode_string(std::string_view(url).substr(scheme.size()));
  while (directory.size() > 1 && directory.back() == '/') directory.pop_back();
  if (directory.empty() || directory.front() != '/' || directory.find('\0') != std::string::npos) return nullptr;
  return std::make_unique<File_Transport>(std::move(directory));
}
