#include "backint/backint_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "base/clock.h"
#include "base/text.h"
#include "catalog/backup_log.h"

extern char** environ;

namespace standin {

namespace {

constexpr std::size_t console_limit_bytes = 65536;

/// True for the file system's own path of something below the root, which may be written by another name of the root.
bool is_below_root(const Layout& layout, const std::filesystem::path& path) {
  std::error_code error;
  const std::filesystem::path folder = std::filesystem::weakly_canonical(path.parent_path(), error);
  return path.string().starts_with(layout.root + "/") || (folder.string() + "/").starts_with(layout.root + "/");
}

/// Follows symbolic links; documented targets are looked up below the root.
std::string resolve(const Layout& layout, const std::string& documented) {
  constexpr int most_links = 16;
  std::string path = layout.real(documented);
  for (int i = 0; i < most_links; ++i) {
    std::error_code error;
    const std::filesystem::path target = std::filesystem::read_symlink(path, error);
    if (error) break;
    if (!target.is_absolute())
      path = (std::filesystem::path(path).parent_path() / target).string();
    else
      path = is_below_root(layout, target) ? target.string() : layout.real(target.string());
  }
  return path;
}

std::string indented(const std::string& text) {
  std::string out;
  for (const std::string& line : split(text, '\n'))
    if (!line.empty()) out += "  " + line + "\n";
  return out;
}

std::string one_line(const std::string& text) {
  const std::string flat = replace_all(std::string(trim(text)), "\n", ", ");
  return flat.empty() ? "No additional Information was received" : flat;
}

}  // namespace

Backint_Process::~Backint_Process() {
  if (waiter_.joinable()) waiter_.join();
  if (reader_.joinable()) reader_.join();
}

bool Backint_Process::start(const std::string& program, std::vector<std::string> arguments) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return false;
  console_ = Descriptor(ends[0]);
  const Descriptor inner(ends[1]);
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, inner.get(), 1);
  posix_spawn_file_actions_adddup2(&actions, inner.get(), 2);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t signals;
  sigemptyset(&signals);
  posix_spawnattr_setsigmask(&attributes, &signals);
  sigaddset(&signals, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &signals);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  error_ = ::posix_spawn(&pid_, program.c_str(), &actions, &attributes, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (error_ != 0) return false;
  reader_ = std::thread([this] { read_console(); });
  waiter_ = std::thread([this] {
    int status = 0;
    ::waitpid(pid_, &status, 0);
    exit_code_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    ended_ = true;
  });
  return true;
}

void Backint_Process::send(int signal) {
  if (!ended_) ::kill(pid_, signal);
}

int Backint_Process::finish() {
  waiter_.join();
  reader_.join();
  return exit_code_;
}

void Backint_Process::read_console() {
  char buffer[4096];
  ssize_t got = 0;
  while ((got = ::read(console_.get(), buffer, sizeof buffer)) > 0)
    text_.append(buffer, std::min(static_cast<std::size_t>(got), console_limit_bytes - text_.size()));
}

std::string backint_program(const Layout& layout) { return resolve(layout, layout.backint_link()); }

std::string cannot_execute(const Layout& layout, int error) {
  return "Backint cannot execute " + layout.backint_link() + ", " + std::strerror(error) + " (" +
         std::to_string(error) + ")";
}

std::string exit_error(const Backint_Process& process, int code) {
  return "[110507] Backint exited with exit code " + std::to_string(code) +
         " instead of 0. console output: " + one_line(process.text()) + ", ";
}

std::string exchange_file(const Layout& layout) {
  const std::string directory = layout.real("/var/tmp");
  if (!make_directories(directory)) return {};
  std::string path = directory + "/hdbbackint_" + layout.sid + ".XXXXXX";
  const Descriptor file(::mkostemp(path.data(), O_CLOEXEC));
  return file.valid() ? path.substr(layout.root.size()) : std::string();
}

std::string backint_quoted(const std::string& text) { return "\"" + replace_all(text, "\"", "\\\"") + "\""; }

std::string software_line(const Layout& layout) {
  return "#SOFTWAREID \"backint 1.04\" \"HANA HDB server " + layout.version + "\"\n";
}

std::vector<std::string> backint_words(std::string_view line) {
  std::vector<std::string> words;
  std::size_t at = 0;
  while (at < line.size()) {
    if (line[at] == ' ' || line[at] == '\t' || line[at] == '\r') {
      ++at;
      continue;
    }
    std::string word;
    if (line[at] == '"') {
      for (++at; at < line.size() && line[at] != '"'; ++at) {
        if (line[at] == '\\' && at + 1 < line.size() && line[at + 1] == '"') ++at;
        word += line[at];
      }
      ++at;
    } else {
      while (at < line.size() && line[at] != ' ' && line[at] != '\r') word += line[at++];
    }
    words.push_back(std::move(word));
  }
  return words;
}

void log_backint_start(const Layout& layout, const std::string& database, const std::string& command, pid_t pid,
                       const std::string& input) {
  append_backint_log(layout, database, "backint started:\n",
                     "  command: " + command + "\n  pid: " + std::to_string(pid) + "\n  input:\n" + indented(input));
}

void log_backint_end(const Layout& layout, const std::string& database, pid_t pid, int code, const std::string& output,
                     const std::string& error) {
  append_backint_log(layout, database, "backint terminated:\n",
                     "  pid: " + std::to_string(pid) + "\n  exit code: " + std::to_string(code) + "\n  output:\n" +
                         indented(output) +
                         (error.empty() ? std::string() : "  exception: exception  1: no.110507 " + error + "\n"));
}

void wait_for_backint(Backint_Process& process, std::int64_t response_timeout_seconds,
                      const std::function<bool()>& canceled, bool signal) {
  constexpr std::int64_t step_ms = 10;
  constexpr std::int64_t patience_after_cancel_ms = 10000;
  std::int64_t waited = 0;
  bool signalled = false;
  std::int64_t since_cancel = 0;
  for (; !process.ended(); waited += step_ms) {
    if (response_timeout_seconds > 0 && waited > response_timeout_seconds * 1000) process.send(SIGKILL);
    if (canceled()) {
      if (!signalled && signal) process.send(SIGTERM);
      signalled = true;
      since_cancel += step_ms;
      if (since_cancel > patience_after_cancel_ms) process.send(SIGKILL);
    }
    sleep_ms(step_ms);
  }
}

}  // namespace standin
