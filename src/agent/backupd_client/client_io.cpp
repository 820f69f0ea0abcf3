#include "agent/backupd_client/client_io_ex.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "agent/backupd_client/client_io_transport.h"
#include "platform/file_root.h"
#include "platform/files.h"
#include "platform/unique_descriptor.h"

namespace {

/// Names that begin with a dot belong to the transports: unfinished objects stand under them.
bool is_sound_segment(std::string_view segment) {
  return !segment.empty() && segment.front() != '.' && segment.find('\0') == std::string_view::npos;
}

bool is_sound_path(std::string_view path) {
  for (;;) {
    const std::size_t slash = path.find('/');
    if (!is_sound_segment(path.substr(0, slash))) return false;
    if (slash == std::string_view::npos) return true;
    path.remove_prefix(slash + 1);
  }
}

bool write_all(int descriptor, std::string_view content) {
  while (!content.empty()) {
    const ssize_t written = ::write(descriptor, content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    content.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace

Client_IO_Ex::Client_IO_Ex(Client_IO_Options options) : options_(std::move(options)) {}
Client_IO_Ex::~Client_IO_Ex() = default;

bool Client_IO_Ex::connect(const std::string& url) {
  transient_ = false;
  transport_.reset();
  if (url.starts_with("file://")) {
    transport_ = make_file_transport(url);
  } else if (url.starts_with("http://") || url.starts_with("https://")) {
    transport_ = make_http_transport(url, options_);
  } else {
    error_ = "storage pool URL '" + url + "' has an unknown scheme";
    return false;
  }
  if (!transport_) {
    error_ = "storage pool URL '" + url + "' is malformed";
    return false;
  }
  if (transport_->connect()) return true;
  error_ = transport_->failure().text;
  transient_ = transport_->failure().transient;
  transport_.reset();
  return false;
}

bool Client_IO_Ex::check(const std::string& path, bool root_allowed) {
  transient_ = false;
  if (!transport_) {
    error_ = "not connected to a storage pool";
    return false;
  }
  if ((root_allowed && path.empty()) || is_sound_path(path)) return true;
  error_ = "path '" + path + "' is refused: a segment is empty or begins with '.'";
  return false;
}

bool Client_IO_Ex::keep_failure(bool ok) {
  if (!ok) {
    error_ = transport_->failure().text;
    transient_ = transport_->failure().transient;
  }
  return ok;
}

bool Client_IO_Ex::get_dir(const std::string& path, std::vector<Pool_Entry>& entries) {
  return check(path, true) && keep_failure(transport_->get_dir(path, entries));
}

bool Client_IO_Ex::remove(const std::string& path) {
  return check(path, false) && keep_failure(transport_->remove(path));
}

std::unique_ptr<Pool_Writer> Client_IO_Ex::create(const std::string& path) {
  if (!check(path, false)) return nullptr;
  std::unique_ptr<Pool_Writer> writer = transport_->create(path);
  keep_failure(writer != nullptr);
  return writer;
}

std::unique_ptr<Pool_Reader> Client_IO_Ex::open(const std::string& path) {
  if (!check(path, false)) return nullptr;
  std::unique_ptr<Pool_Reader> reader = transport_->open(path);
  keep_failure(reader != nullptr);
  return reader;
}

bool Client_IO_Ex::exists(const std::string& path) {
  return check(path, false) && keep_failure(transport_->exists(path));
}

bool Client_IO_Ex::get_file(const std::string& path, const std::string& local_path, int open_flags,
                            std::size_t block_bytes, const Progress& progress) {
  const std::unique_ptr<Pool_Reader> reader = open(path);
  if (reader == nullptr) return false;
  const std::string real = platform::File_Root::current().real(local_path);
  const platform::Unique_Descriptor file(::open(real.c_str(), open_flags, platform::mode_sap_file));
  if (file.get() < 0) return fail_locally("cannot be opened", local_path);
  if (copy(*reader, file.get(), block_bytes, progress, local_path)) return true;
  // Half a file would pass for a whole one.
  (void)platform::remove_file(local_path);
  return false;
}

bool Client_IO_Ex::copy(Pool_Reader& reader, int descriptor, std::size_t block_bytes, const Progress& progress,
                        const std::string& local_path) {
  std::string block(block_bytes, '\0');
  std::uint64_t total = 0;
  for (;;) {
    const ssize_t count = reader.read(block.data(), block.size());
    if (count < 0) {
      error_ = reader.error();
      transient_ = reader.transient();
      return false;
    }
    if (count == 0) break;
    if (!write_all(descriptor, {block.data(), static_cast<std::size_t>(count)}))
      return fail_locally("cannot be written", local_path);
    total += static_cast<std::uint64_t>(count);
    if (progress) progress(total);
  }
  return ::fsync(descriptor) == 0 || fail_locally("cannot be synced", local_path);
}

bool Client_IO_Ex::fail_locally(const std::string& what, const std::string& local_path) {
  error_ = "'" + local_path + "' " + what + ": " + std::strerror(errno);
  transient_ = false;
  return false;
}

const std::string& Client_IO_Ex::error() const { return error_; }
bool Client_IO_Ex::transient() const { return transient_; }
