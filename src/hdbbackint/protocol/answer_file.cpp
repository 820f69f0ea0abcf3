#include "hdbbackint/protocol/answer_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "hdbbackint/console.h"
#include "hdbbackint/paths.h"
#include "hdbbackint/protocol/line_tokens.h"
#include "platform/files.h"

namespace hdbbackint {

namespace {

std::string parameter(std::string_view text) { return text.empty() ? std::string() : " " + quote_parameter(text); }

}  // namespace

bool Answer_File::open(const std::string& path, std::string& error) {
  const int fd = path.empty() ? ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)
                              : ::open(real_path(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC,
                                       platform::mode_sap_file);
  file_.reset(fd);
  if (file_.valid()) return true;
  error = "cannot write the output file " + (path.empty() ? "(standard output)" : path) + ": " + std::strerror(errno);
  return false;
}

void Answer_File::software_id(std::string_view interface, std::string_view tool) {
  write_line("#SOFTWAREID" + parameter("backint " + std::string(interface)) + parameter(tool));
}

void Answer_File::saved(std::string_view ebid, std::string_view name, std::uint64_t bytes) {
  write_line("#SAVED" + parameter(ebid) + parameter(name) + " " + std::to_string(bytes));
}

void Answer_File::restored(std::string_view ebid, std::string_view name) {
  write_line("#RESTORED" + parameter(ebid) + parameter(name));
}

void Answer_File::backup(std::string_view ebid, std::string_view name, std::string_view timestamp) {
  write_line("#BACKUP" + parameter(ebid) + parameter(name) + parameter(timestamp));
}

void Answer_File::deleted(std::string_view ebid, std::string_view name) {
  write_line("#DELETED" + parameter(ebid) + parameter(name));
}

void Answer_File::not_found(std::string_view ebid, std::string_view name) {
  write_line("#NOTFOUND" + parameter(ebid) + parameter(name));
}

void Answer_File::error(std::string_view ebid, std::string_view name) {
  failed_ = true;
  write_line("#ERROR" + parameter(ebid) + parameter(name));
}

void Answer_File::write_line(std::string line) {
  line += '\n';
  const std::lock_guard<std::mutex> guard(mutex_);
  std::string_view rest = line;
  while (!rest.empty()) {
    const ssize_t written = ::write(file_.get(), rest.data(), rest.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) {
      failed_ = true;
      report_failure(std::string("cannot write an answer to the output file: ") + std::strerror(errno));
      return;
    }
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace hdbbackint
