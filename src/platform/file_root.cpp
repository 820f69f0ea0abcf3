#include "platform/file_root.h"

#include <unistd.h>

#include <climits>

namespace platform {

namespace {

File_Root& stored_root() {
  static File_Root root;
  return root;
}

}  // namespace

File_Root::File_Root(std::string prefix) : prefix_(std::move(prefix)) {
  while (!prefix_.empty() && prefix_.back() == '/') prefix_.pop_back();
}

std::string File_Root::real(std::string_view documented) const {
  if (prefix_.empty() || documented.empty() || documented.front() != '/') return std::string(documented);
  return prefix_ + std::string(documented);
}

std::string File_Root::documented(std::string_view real) const {
  const bool below =
      !prefix_.empty() && real.starts_with(prefix_) && (real.size() == prefix_.size() || real[prefix_.size()] == '/');
  if (!below) return std::string(real);
  std::string rest(real.substr(prefix_.size()));
  return rest.empty() ? "/" : rest;
}

const File_Root& File_Root::current() { return stored_root(); }
void File_Root::set_current(File_Root root) { stored_root() = std::move(root); }

File_Root File_Root::of_running_program() {
  char buffer[PATH_MAX];
  const ssize_t size = ::readlink("/proc/self/exe", buffer, sizeof buffer);
  if (size <= 0) return File_Root();
  const std::string_view path(buffer, static_cast<std::size_t>(size));
  const std::size_t at = path.rfind("/opt/tarvex/dorsal3/bin/");
  if (at == std::string_view::npos) return File_Root();
  return File_Root(std::string(path.substr(0, at)));
}

Scoped_File_Root::Scoped_File_Root(std::string prefix) : previous_(stored_root()) {
  stored_root() = File_Root(std::move(prefix));
}
Scoped_File_Root::~Scoped_File_Root() { stored_root() = previous_; }

}  // namespace platform
