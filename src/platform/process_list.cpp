// The processes of this host, from /proc: proc(5), the files "cmdline" and the link "exe" of each process.

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>

#include "platform/file_root.h"
#include "platform/files.h"
#include "platform/process_runner.h"
#include "platform/unique_descriptor.h"

namespace platform {

namespace {

constexpr const char* process_directory = "/proc";

bool is_process(const char* name) {
  return *name != '\0' &&
         std::all_of(name, name + std::char_traits<char>::length(name), [](char c) { return c >= '0' && c <= '9'; });
}

/// Arguments joined by blanks; false for a process that has none (a thread of the kernel, a zombie) or has gone.
bool read_command_line(const std::string& directory, std::string& command_line) {
  const Unique_Descriptor file(::open((directory + "/cmdline").c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.valid()) return false;
  std::array<char, path_buffer_bytes> buffer{};
  for (ssize_t got = 0; (got = ::read(file.get(), buffer.data(), buffer.size())) > 0;)
    command_line.append(buffer.data(), static_cast<std::size_t>(got));
  while (!command_line.empty() && command_line.back() == '\0') command_line.pop_back();
  std::replace(command_line.begin(), command_line.end(), '\0', ' ');
  return !command_line.empty();
}

/// With an installation below a folder only its own programs belong to it. One whose program cannot be seen counts: it
/// is another user's.
bool belongs_here(const std::string& directory) {
  const std::string& prefix = File_Root::current().prefix();
  if (prefix.empty()) return true;
  std::array<char, path_buffer_bytes> buffer{};
  const ssize_t size = ::readlink((directory + "/exe").c_str(), buffer.data(), buffer.size());
  return size < 0 || std::string_view(buffer.data(), static_cast<std::size_t>(size)).starts_with(prefix + "/");
}

std::string owner_of(const std::string& directory) {
  struct stat status {};
  if (::stat(directory.c_str(), &status) != 0) return {};
  struct passwd entry {};
  struct passwd* found = nullptr;
  std::array<char, path_buffer_bytes> buffer{};
  if (::getpwuid_r(status.st_uid, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr)
    return entry.pw_name;
  return std::to_string(status.st_uid);
}

}  // namespace

bool Process_Runner::list(std::vector<Running_Process>& processes) {
  const std::unique_ptr<DIR, int (*)(DIR*)> all(::opendir(process_directory), &::closedir);
  if (!all) return false;
  processes.clear();
  while (const dirent* const entry = ::readdir(all.get())) {
    if (!is_process(entry->d_name)) continue;
    const std::string directory = std::string(process_directory) + '/' + entry->d_name;
    Running_Process process;
    if (!read_command_line(directory, process.command_line) || !belongs_here(directory)) continue;
    process.pid = static_cast<pid_t>(std::strtol(entry->d_name, nullptr, 10));
    process.user = owner_of(directory);
    processes.push_back(std::move(process));
  }
  return true;
}

}  // namespace platform
