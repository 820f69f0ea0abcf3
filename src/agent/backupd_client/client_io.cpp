#include "agent/backupd_client/client_io_ex.h"

#include <string_view>

#include "agent/backupd_client/client_io_transport.h"

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

const std::string& Client_IO_Ex::error() const { return error_; }
bool Client_IO_Ex::transient() const { return transient_; }
