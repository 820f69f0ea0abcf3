#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "agent/backupd_client/backint_workplace.h"
#include "agentd/daemon.h"
#include "agentd/unfinished_writes.h"
#include "platform/file_root.h"
#include "platform/files.h"
#include "platform/log.h"
#include "platform/product_paths.h"

namespace {

enum Exit_Code { exit_ok = 0, exit_cannot_start = 1, exit_configuration = 2, exit_cut_off = 3 };

constexpr const char* program_name = "dorsal3-agent";

/// The signals that end the agent; blocked in every thread and taken by the main one.
sigset_t ending_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  return signals;
}

/// One agent per installation: two would tear each other's records apart. The lock is held until the process ends.
bool lock_installation() {
  const std::string path = platform::product_paths::agent_state("agent.lock");
  if (platform::mkdir_p(platform::product_paths::agent_state("").c_str(), platform::mode_directory) != 0) {
    D3_ERROR("Failed to make the directory of %C, %m\n", path.c_str());
    return false;
  }
  const int fd = ::open(platform::File_Root::current().real(path).c_str(), O_CREAT | O_RDWR | O_CLOEXEC,
                        platform::mode_private_file);
  if (fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) == 0) return true;
  D3_ERROR("Failed to lock %C, %m; is another agent of this installation running?\n", path.c_str());
  return false;
}

bool open_log(const Agent_Configuration& configuration) {
  std::string directory(platform::path_buffer_bytes, '\0');
  const std::string& file = configuration.log_file;
  if (!file.empty() && (platform::dirname_r(file.c_str(), directory.data(), directory.size(), '/') == nullptr ||
                        platform::mkdir_p(directory.c_str(), platform::mode_directory) != 0)) {
    std::cerr << program_name << ": cannot make the directory of the log " << file << "\n";
    return false;
  }
  platform::open_program_log(program_name, file);
  return true;
}

/// It takes no options: what it is asked for by one is told, and no agent is started.
int tell_about(const std::string& word) {
  const bool help = word == "--help" || word == "-h";
  if (word == "--version" || help) {
    std::cout << program_name << " " << DORSAL3_VERSION << "\n";
    if (help)
      std::cout << "The host agent of Dorsal3. It takes no options and stays in the foreground; its configuration is "
                << Agent_Configuration::path() << ". See dorsal3-agent(8).\n";
    return exit_ok;
  }
  std::cerr << program_name << ": \"" << word << "\" is not known; it takes no options, see dorsal3-agent(8)\n";
  return exit_configuration;
}

int run(const Agent_Configuration& configuration) {
  const sigset_t signals = ending_signals();
  agentd::Daemon daemon(configuration);
  if (!daemon.start()) return exit_cannot_start;
  int signal = 0;
  while (::sigwait(&signals, &signal) != 0) {
  }
  if (daemon.stop()) return exit_ok;
  // Threads still use what a normal end would destroy.
  std::cerr.flush();
  ::_exit(exit_cut_off);
}

}  // namespace

int main(int count, char** words) {
  if (count > 1) return tell_about(words[1]);
  platform::File_Root::set_current(platform::File_Root::of_running_program());
  const sigset_t signals = ending_signals();
  (void)::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  (void)std::signal(SIGPIPE, SIG_IGN);

  Agent_Configuration configuration;
  std::string error;
  if (!Agent_Configuration::load(configuration, error)) {
    std::cerr << program_name << ": " << error << "\n";
    return exit_configuration;
  }
  if (!configuration.endpoint.is_private()) {
    std::cerr << program_name << ": server_url \"" << configuration.server_url
              << "\" is without TLS, where the key and passwords could be read on the way; use https\n";
    return exit_configuration;
  }
  if (!open_log(configuration)) return exit_configuration;
  if (!lock_installation()) return exit_cannot_start;
  agentd::remove_unfinished_writes();
  prepare_backint_workplace();
  return run(configuration);
}
