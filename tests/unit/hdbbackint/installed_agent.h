#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace hdbbackint {

/// A child process with its standard error in a file.
class Child {
 public:
  Child(const std::vector<std::string>& command, const std::string& error_file) {
    std::vector<char*> arguments;
    for (const std::string& part : command) arguments.push_back(const_cast<char*>(part.c_str()));
    arguments.push_back(nullptr);
    pid_ = ::fork();
    if (pid_ == 0) {
      const int null = ::open("/dev/null", O_RDWR);
      const int errors = ::open(error_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      ::dup2(null, STDIN_FILENO);
      ::dup2(null, STDOUT_FILENO);
      ::dup2(errors, STDERR_FILENO);
      ::execv(arguments[0], arguments.data());
      ::_exit(127);
    }
  }
  [[nodiscard]] pid_t pid() const { return pid_; }
  void signal(int number) const { ::kill(pid_, number); }
  /// Exit code, or minus the signal that ended it.
  int wait() {
    int status = 0;
    ::waitpid(pid_, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  /// The most so far, while it runs; 0 once it has ended.
  [[nodiscard]] long resident_so_far_kib() const {
    std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
    const std::string key = "VmHWM:";
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with(key)) return std::stol(line.substr(key.size()));
    }
    return 0;
  }

 private:
  pid_t pid_ = -1;
};

/// Lays the built program out below `root` as an installation does; returns the program's real path.
inline std::string install_agent(const std::string& root, const std::string& program) {
  namespace fs = std::filesystem;
  const fs::path base = fs::path(root) / "opt/tarvex/dorsal3";
  fs::create_directories(base / "bin");
  fs::copy_file(program, base / "bin/hdbbackint", fs::copy_options::overwrite_existing);
  return (base / "bin/hdbbackint").string();
}

}  // namespace hdbbackint
