#include "processes.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#include <utility>

extern char** environ;

namespace system_tests {

namespace {

int code_of(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status); }

std::vector<char*> argv_of(const std::vector<std::string>& command) {
  std::vector<char*> argv;
  for (const std::string& word : command) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  return argv;
}

struct Pipe {
  Pipe() {
    if (::pipe2(ends, O_CLOEXEC) != 0) ends[0] = ends[1] = -1;
  }
  ~Pipe() {
    close_end(0);
    close_end(1);
  }
  void close_end(int end) {
    if (ends[end] >= 0) ::close(ends[end]);
    ends[end] = -1;
  }
  int ends[2];
};

void read_both(Pipe& out, Pipe& err, Tool_Result& result) {
  std::array<char, 65536> buffer{};
  while (out.ends[0] >= 0 || err.ends[0] >= 0) {
    std::array<pollfd, 2> wanted{pollfd{out.ends[0], POLLIN, 0}, pollfd{err.ends[0], POLLIN, 0}};
    if (::poll(wanted.data(), wanted.size(), -1) < 0) return;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
      if (wanted[i].revents == 0) continue;
      const ssize_t got = ::read(wanted[i].fd, buffer.data(), buffer.size());
      if (got > 0)
        (i == 0 ? result.out : result.err).append(buffer.data(), static_cast<std::size_t>(got));
      else
        (i == 0 ? out : err).close_end(0);
    }
  }
}

}  // namespace

void pause_20_ms() { std::this_thread::sleep_for(std::chrono::milliseconds(20)); }

json_spirit::Object Tool_Result::json() const {
  json_spirit::Value value;
  return json_spirit::load_json(out, value) && value.is_object() ? value.get_obj() : json_spirit::Object();
}

Tool_Result run_tool(const std::vector<std::string>& command, const std::string& input) {
  Tool_Result result;
  Pipe in;
  Pipe out;
  Pipe err;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in.ends[0], 0);
  posix_spawn_file_actions_adddup2(&actions, out.ends[1], 1);
  posix_spawn_file_actions_adddup2(&actions, err.ends[1], 2);
  pid_t pid = -1;
  const int error = ::posix_spawn(&pid, command.front().c_str(), &actions, nullptr, argv_of(command).data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  in.close_end(0);
  out.close_end(1);
  err.close_end(1);
  if (error != 0) {
    result.err = command.front() + " cannot be started";
    return result;
  }
  (void)::signal(SIGPIPE, SIG_IGN);
  if (::write(in.ends[1], input.data(), input.size()) < 0) result.err = "cannot write input\n";
  in.close_end(1);
  read_both(out, err, result);
  int status = 0;
  ::waitpid(pid, &status, 0);
  result.code = code_of(status);
  return result;
}

Background_Process::Background_Process(const std::vector<std::string>& command, const std::string& log_file) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, log_file.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
  posix_spawn_file_actions_adddup2(&actions, 1, 2);
  if (::posix_spawn(&pid_, command.front().c_str(), &actions, nullptr, argv_of(command).data(), environ) != 0)
    ended_ = true;
  posix_spawn_file_actions_destroy(&actions);
}

Background_Process::~Background_Process() {
  signal(SIGKILL);
  (void)wait(state_limit);
}

void Background_Process::signal(int number) const {
  if (!ended_) ::kill(pid_, number);
}

bool Background_Process::running() {
  int status = 0;
  if (!ended_ && ::waitpid(pid_, &status, WNOHANG) == pid_) {
    ended_ = true;
    code_ = code_of(status);
  }
  return !ended_;
}

int Background_Process::wait(std::chrono::seconds limit) {
  return eventually([this] { return !running(); }, limit) ? code_ : -1;
}

namespace {

namespace fs = std::filesystem;

/// The entries of /proc of the processes whose program lies below `folder`, with that program.
std::vector<std::pair<fs::path, fs::path>> entries_below(const std::string& folder) {
  std::vector<std::pair<fs::path, fs::path>> found;
  std::error_code error;
  for (fs::directory_iterator entry("/proc", error), end; !error && entry != end; entry.increment(error)) {
    std::error_code gone;
    const fs::path program = fs::read_symlink(entry->path() / "exe", gone);
    if (!gone && program.string().starts_with(folder + "/")) found.emplace_back(entry->path(), program);
  }
  return found;
}

}  // namespace

std::vector<pid_t> pids_below(const std::string& folder, const std::string& program) {
  std::vector<pid_t> found;
  for (const auto& [entry, file] : entries_below(folder))
    if (file.filename() == program) found.push_back(static_cast<pid_t>(std::stol(entry.filename().string())));
  return found;
}

std::vector<std::string> processes_below(const std::string& folder) {
  std::vector<std::string> found;
  for (const auto& [entry, program] : entries_below(folder)) {
    const std::ifstream file(entry / "cmdline");
    std::ostringstream text;
    text << file.rdbuf();  // it may be gone meanwhile
    std::string line = text.str();
    for (char& c : line)
      if (c == '\0') c = ' ';
    found.push_back(entry.filename().string() + ": " + line);
  }
  return found;
}

std::vector<std::string> files_below(const std::string& folder) {
  std::vector<std::string> found;
  std::vector<fs::path> folders{folder};
  while (!folders.empty()) {
    const fs::path next = std::move(folders.back());
    folders.pop_back();
    std::error_code error;
    for (fs::directory_iterator entry(next, error), end; !error && entry != end; entry.increment(error)) {
      std::error_code gone;
      if (entry->is_symlink(gone)) continue;
      if (entry->is_directory(gone))
        folders.push_back(entry->path());
      else if (entry->is_regular_file(gone))
        found.push_back(entry->path().string());
    }
  }
  std::sort(found.begin(), found.end());
  return found;
}

}  // namespace system_tests
