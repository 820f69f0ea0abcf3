#include "hdbbackint/stream/object_destination.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "hdbbackint/paths.h"
#include "hdbbackint/stream/stream_limits.h"
#include "platform/files.h"
#include "scrt/uuid.h"

namespace hdbbackint {

namespace {

/// Lets a blocking open of a pipe's writing end go when the stop is requested: by being a reader for a moment. The end
/// is held as long as this lives, so that it also works when the open begins only afterwards.
class Open_Release {
 public:
  Open_Release(const std::string& path, Stop_Source& stop)
      : listener_(stop,
                  [this, path] { reader_.reset(::open(real_path(path).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)); }) {
  }

 private:
  platform::Unique_Descriptor reader_;
  Stop_Source::Listener listener_;
};

}  // namespace

std::unique_ptr<Object_Destination> Object_Destination::open(Object_Source::Kind kind, const std::string& path,
                                                             Stop_Source& stop, std::string& error) {
  const std::string what = "cannot write " + path + ": ";
  if (path.find('\0') != std::string::npos || path.empty() || path.front() != '/') {
    error = what + "it is not an absolute path";
    return nullptr;
  }
  struct stat status {};
  const bool there = ::stat(real_path(path).c_str(), &status) == 0;
  if (there && S_ISFIFO(status.st_mode)) return open_pipe(path, stop, error);
  if (path == null_device) {
    platform::Unique_Descriptor device(::open(null_device, O_WRONLY | O_CLOEXEC));
    return std::unique_ptr<Object_Destination>(new Object_Destination(path, {}, std::move(device), stop));
  }
  if (kind == Object_Source::Kind::pipe) {
    error = what + (there ? "it is not a named pipe" : std::strerror(errno));
    return nullptr;
  }
  if (there && !S_ISREG(status.st_mode)) {
    error = what + "it is neither a named pipe nor a file";
    return nullptr;
  }
  return open_file(path, stop, error);
}

std::unique_ptr<Object_Destination> Object_Destination::open_pipe(const std::string& path, Stop_Source& stop,
                                                                  std::string& error) {
  platform::Unique_Descriptor pipe;
  {
    const Open_Release release(path, stop);
    pipe.reset(::open(real_path(path).c_str(), O_WRONLY | O_CLOEXEC));
  }
  if (pipe.valid()) (void)::fcntl(pipe.get(), F_SETPIPE_SZ, wanted_pipe_bytes);
  if (pipe.valid() && !stop.requested() && ::fcntl(pipe.get(), F_SETFL, O_NONBLOCK) == 0) {
    return std::unique_ptr<Object_Destination>(new Object_Destination(path, {}, std::move(pipe), stop));
  }
  error = "cannot write " + path + ": " + (stop.requested() ? "stopped" : std::strerror(errno));
  return nullptr;
}

std::unique_ptr<Object_Destination> Object_Destination::open_file(const std::string& path, Stop_Source& stop,
                                                                  std::string& error) {
  const std::string temporary = path.substr(0, path.rfind('/') + 1) + "." + make_uuid() + ".tmp";
  platform::Unique_Descriptor file(::open(
      real_path(temporary).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, platform::mode_sap_file));
  if (!file.valid()) {
    error = "cannot write " + path + ": " + std::strerror(errno);
    return nullptr;
  }
  return std::unique_ptr<Object_Destination>(new Object_Destination(path, temporary, std::move(file), stop));
}

Object_Destination::Object_Destination(std::string path, std::string temporary, platform::Unique_Descriptor file,
                                       Stop_Source& stop)
    : path_(std::move(path)), temporary_(std::move(temporary)), file_(std::move(file)), stop_(stop) {}

Object_Destination::~Object_Destination() {
  if (!temporary_.empty()) (void)platform::remove_file(temporary_);
}

bool Object_Destination::write(const char* data, std::size_t size) {
  while (size > 0) {
    if (stop_.requested()) return fail("stopped");
    const ssize_t written = ::write(file_.get(), data, size);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0 && errno == EAGAIN) {
      if (!wait_for_room()) return false;
      continue;
    }
    if (written < 0) return fail(errno == EPIPE ? "the reader has closed it" : std::strerror(errno));
    data += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

bool Object_Destination::wait_for_room() {
  pollfd waits[] = {{file_.get(), POLLOUT, 0}, {stop_.descriptor(), POLLIN, 0}};
  return ::poll(waits, 2, -1) >= 0 || errno == EINTR || fail(std::strerror(errno));
}

bool Object_Destination::finish() {
  if (temporary_.empty()) {
    file_.reset();
    return true;
  }
  const bool stored =
      ::fsync(file_.get()) == 0 && std::rename(real_path(temporary_).c_str(), real_path(path_).c_str()) == 0;
  if (!stored) return fail(std::strerror(errno));
  temporary_.clear();
  return platform::sync_directory(path_.substr(0, path_.rfind('/') + 1)) || fail(std::strerror(errno));
}

bool Object_Destination::fail(const std::string& why) {
  error_ = "cannot write " + path_ + ": " + why;
  return false;
}

}  // namespace hdbbackint
