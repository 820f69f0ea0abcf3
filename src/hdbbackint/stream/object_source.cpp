#include "hdbbackint/stream/object_source.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "hdbbackint/paths.h"
#include "hdbbackint/stream/stream_limits.h"

namespace hdbbackint {

namespace {

const char* describe_other(mode_t mode) {
  if (S_ISDIR(mode)) return "it is a directory";
  if (S_ISREG(mode)) return "it is a plain file, not a named pipe";
  if (S_ISFIFO(mode)) return "it is a named pipe, not a file";
  return "it is neither a named pipe nor a file";
}

}  // namespace

std::unique_ptr<Object_Source> Object_Source::open(Kind kind, const std::string& path, Stop_Source& stop,
                                                   std::string& error) {
  const std::string what = "cannot read " + path + ": ";
  if (path.find('\0') != std::string::npos || path.empty() || path.front() != '/') {
    error = what + "it is not an absolute path";
    return nullptr;
  }
  // Non-blocking: neither a pipe without a writer nor a device put in its place may hold us.
  platform::Unique_Descriptor file(::open(real_path(path).c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status {};
  if (!file.valid() || ::fstat(file.get(), &status) != 0) {
    error = what + std::strerror(errno);
    return nullptr;
  }
  const bool fits = kind == Kind::pipe ? S_ISFIFO(status.st_mode) : S_ISREG(status.st_mode);
  if (!fits) {
    error = what + describe_other(status.st_mode);
    return nullptr;
  }
  if (kind == Kind::pipe) {
    (void)::fcntl(file.get(), F_SETPIPE_SZ, wanted_pipe_bytes);
  } else {
    ::posix_fadvise(file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
  }
  return std::unique_ptr<Object_Source>(new Object_Source(kind, path, stop, std::move(file)));
}

Object_Source::Object_Source(Kind kind, std::string path, Stop_Source& stop, platform::Unique_Descriptor file)
    : kind_(kind), path_(std::move(path)), stop_(stop), file_(std::move(file)) {}

ssize_t Object_Source::fill(char* data, std::size_t size) {
  std::size_t filled = 0;
  while (filled < size) {
    const ssize_t got = read_some(data + filled, size - filled);
    if (got < 0) return -1;
    if (got == 0) break;
    filled += static_cast<std::size_t>(got);
  }
  return static_cast<ssize_t>(filled);
}

ssize_t Object_Source::read_some(char* data, std::size_t size) {
  bool hung_up = kind_ == Kind::file;
  for (;;) {
    if (stop_.requested()) return fail("stopped");
    const ssize_t got = ::read(file_.get(), data, size);
    if (got > 0) return got;
    // Reading nothing is the end only after the writers have gone; before the first one it means "not yet".
    if (got == 0 && hung_up) return 0;
    if (got < 0 && errno != EAGAIN && errno != EINTR) return fail(std::strerror(errno));
    if (!wait_for_data(hung_up)) return -1;
  }
}

bool Object_Source::wait_for_data(bool& hung_up) {
  pollfd waits[] = {{file_.get(), POLLIN, 0}, {stop_.descriptor(), POLLIN, 0}};
  if (::poll(waits, 2, -1) < 0) return errno == EINTR || fail(std::strerror(errno)) == 0;
  hung_up = (waits[0].revents & POLLHUP) != 0;
  if ((waits[0].revents & (POLLERR | POLLNVAL)) != 0) return fail("the pipe is broken") == 0;
  return true;
}

ssize_t Object_Source::fail(const std::string& why) {
  error_ = "cannot read " + path_ + ": " + why;
  return -1;
}

}  // namespace hdbbackint
