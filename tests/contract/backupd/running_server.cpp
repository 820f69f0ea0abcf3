#include "contract/backupd/running_server.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

#include "net/http_transport.h"
#include "support/sanitizer.h"

namespace contract {

namespace {

constexpr std::chrono::seconds answer_limit{30};
constexpr std::chrono::milliseconds poll{10};
constexpr std::chrono::seconds start_limit{30};
constexpr char port_file[] = "/var/opt/tarvex/dorsal3/backupd/port";

/// A program lies below the root itself: that is how it is known there.
void install(const std::string& from, const std::string& to) {
  std::filesystem::create_directories(std::filesystem::path(to).parent_path());
  std::error_code failed;
  std::filesystem::create_hard_link(from, to, failed);
  if (failed) std::filesystem::copy_file(from, to);
}

/// Large, and found where the link leads on another file system.
void install_library(const std::string& from, const std::string& to) {
  std::filesystem::create_directories(std::filesystem::path(to).parent_path());
  std::error_code failed;
  std::filesystem::create_hard_link(from, to, failed);
  if (failed) std::filesystem::create_symlink(from, to);
}

}  // namespace

Running_Server::Running_Server() : program_(root.real("/opt/tarvex/dorsal3/bin/dorsal3-backupd")) {
  install(BACKUPD_PROGRAM, program_);
  install_library(DORSAL3_LIBRARY, root.real("/opt/tarvex/dorsal3/lib/libdorsal3.so"));
  root.write("/etc/opt/tarvex/dorsal3/backupd.toml", "port = 0\n");
}

Running_Server::~Running_Server() {
  if (pid_ > 0) end(SIGKILL);
  EXPECT_EQ(support::sanitizer_report(root.read("/server.log")), "");
}

pid_t Running_Server::spawn(const std::vector<std::string>& arguments, int output) const {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
  std::vector<std::string> words{program_};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  pid_t pid = -1;
  EXPECT_EQ(::posix_spawn(&pid, program_.c_str(), &actions, nullptr, argv.data(), environ), 0);
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

void Running_Server::start() {
  std::filesystem::remove(root.real(port_file));
  const int output = ::open(root.real("/server.log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  pid_ = spawn({"serve"}, output);
  ::close(output);
  const auto deadline = std::chrono::steady_clock::now() + start_limit;
  while (!root.exists(port_file) && std::chrono::steady_clock::now() < deadline) std::this_thread::sleep_for(poll);
  ASSERT_TRUE(root.exists(port_file)) << root.read("/server.log");
  port_ = static_cast<unsigned short>(std::stoi(root.read(port_file)));
}

int Running_Server::end(int signal) {
  int status = 0;
  ::kill(pid_, signal);
  ::waitpid(pid_, &status, 0);
  pid_ = -1;
  return status;
}

int Running_Server::run(const std::vector<std::string>& arguments, std::string& output) const {
  int ends[2];
  EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const pid_t pid = spawn(arguments, ends[1]);
  ::close(ends[1]);
  char buffer[4096];
  for (ssize_t got = 0; (got = ::read(ends[0], buffer, sizeof buffer)) > 0;)
    output.append(buffer, static_cast<std::size_t>(got));
  ::close(ends[0]);
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string Running_Server::make_key(const std::string& role, const std::string& host) const {
  std::vector<std::string> arguments{"key", "add", "--role", role};
  if (!host.empty()) arguments.insert(arguments.end(), {"--host", host});
  std::string output;
  EXPECT_EQ(run(arguments, output), 0) << output;
  return output.substr(0, output.find('\n'));
}

bool Running_Server::ask(const std::string& method, const std::string& target, const std::string& key,
                         const std::string& body, net::Http_Response& response) const {
  net::Net_Error error;
  const auto connection = net::Http_Transport::current().connect({false, "127.0.0.1", port_, ""}, answer_limit, error);
  if (!connection) return false;
  net::Http_Request request;
  request.method = method;
  request.target = target;
  request.body = body;
  if (!key.empty()) request.headers.set("Authorization", "Bearer " + key);
  return connection->exchange(request, response, answer_limit, error);
}

}  // namespace contract
