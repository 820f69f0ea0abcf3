#include "platform/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/file_root.h"
#include "platform/files.h"

namespace platform {

namespace {

constexpr mode_t mode_lock_directory = 0700;

bool lock_exclusively(int file) {
  // A lock of the open file and not of the process, so that it keeps out threads of this process too.
  while (::flock(file, LOCK_EX) != 0)
    if (errno != EINTR) return false;
  return true;
}

}  // namespace

bool File_Lock::is_named(int file) const {
  struct stat opened {};
  struct stat named {};
  return ::fstat(file, &opened) == 0 && ::lstat(File_Root::current().real(path_).c_str(), &named) == 0 &&
         opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

bool File_Lock::acquire() {
  if (held()) return true;
  char directory[path_buffer_bytes];
  if (dirname_r(path_.c_str(), directory, sizeof directory, '/') == nullptr) return false;
  if (mkdir_p(directory, mode_lock_directory) != 0) return false;
  for (;;) {
    Unique_Descriptor file(
        ::open(File_Root::current().real(path_).c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, mode_private_file));
    if (!file.valid() || !lock_exclusively(file.get())) return false;
    // Whoever held it before has removed the file: the lock that others will take is another one.
    if (!is_named(file.get())) continue;
    file_ = std::move(file);
    return true;
  }
}

void File_Lock::release() {
  if (!held()) return;
  // Removed while it is held: nobody can hold a file of this name beside us.
  (void)remove_file(path_);
  file_.reset();
}

}  // namespace platform
