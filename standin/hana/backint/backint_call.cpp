#include "backint/backint_call.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <thread>

#include "base/clock.h"
#include "base/text.h"
#include "catalog/backup_log.h"

extern char** environ;

namespace standin {

namespace {

constexpr std::size_t console_limit_bytes = 65536;

std::string quoted(const std::string& text) { return "\"" + replace_all(text, "\"", "\\\"") + "\""; }

/// The words of an answer line; quotes are taken off, \" inside them is a quote.
std::vector<std::string> words_of(std::string_view line) {
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

/// An empty file of hdbbackint's, "/var/tmp/hdbbackint_<SID>.<6 random>"; its documented path.
std::string exchange_file(const Layout& layout) {
  const std::string directory = layout.real("/var/tmp");
  if (!make_directories(directory)) return {};
  std::string path = directory + "/hdbbackint_" + layout.sid + ".XXXXXX";
  const Descriptor file(::mkostemp(path.data(), O_CLOEXEC));
  return file.valid() ? path.substr(layout.root.size()) : std::string();
}

/// The running process, with what it printed and how it ended.
class Process {
 public:
  ~Process() {
    if (waiter_.joinable()) waiter_.join();
    if (reader_.joinable()) reader_.join();
  }
  bool start(const std::string& program, std::vector<std::string> arguments) {
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
  void send(int signal) {
    if (!ended_) ::kill(pid_, signal);
  }
  [[nodiscard]] bool ended() const { return ended_; }
  [[nodiscard]] int error() const { return error_; }
  [[nodiscard]] pid_t pid() const { return pid_; }
  int finish() {
    waiter_.join();
    reader_.join();
    return exit_code_;
  }
  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  void read_console() {
    char buffer[4096];
    ssize_t got = 0;
    while ((got = ::read(console_.get(), buffer, sizeof buffer)) > 0)
      text_.append(buffer, std::min(static_cast<std::size_t>(got), console_limit_bytes - text_.size()));
  }
  Descriptor console_;
  pid_t pid_ = 0;
  int error_ = 0;
  std::atomic<bool> ended_{false};
  std::atomic<int> exit_code_{0};
  std::string text_;
  std::thread waiter_, reader_;
};

std::string input_text(const Backint_Call& call, const std::vector<Backint_Part>& parts) {
  std::string text = "#SOFTWAREID \"backint 1.04\" \"HANA HDB server " + call.layout.version + "\"\n";
  if (!call.tool_option.empty()) text += "#TOOLOPTION " + quoted(call.tool_option) + "\n";
  for (const Backint_Part& part : parts) text += "#PIPE " + quoted(part.name) + " " + std::to_string(part.size) + "\n";
  return text;
}

bool make_pipes(const Layout& layout, const std::vector<Backint_Part>& parts) {
  for (const Backint_Part& part : parts) {
    const std::string path = layout.real(part.name);
    if (!make_directories(std::filesystem::path(path).parent_path().string())) return false;
    ::unlink(path.c_str());
    if (::mkfifo(path.c_str(), 0660) != 0) return false;
  }
  return true;
}

/// Reads the answers; the error's text when a part is missing or has another size.
std::string read_answers(const std::string& output, std::vector<Backint_Part>& parts) {
  for (Backint_Part& part : parts) {
    std::string size;
    for (const std::string& line : split(output, '\n')) {
      const auto words = words_of(line);
      if (words.size() >= 3 && words[0] == "#SAVED" && words[2] == part.name) {
        part.external_id = words[1];
        size = words.size() > 3 ? words[3] : std::to_string(part.result.bytes);
      }
      if (words.size() >= 2 && words[0] == "#ERROR" && words[1] == part.name)
        return "[110506] Backint reported an error for '" + part.name + "'";
    }
    if (part.external_id.empty()) return "[110512] Backint reported '" + part.name + "' was not found in output";
    if (size != std::to_string(part.result.bytes))
      return "[110203] Not all data could be written: Expected " + std::to_string(part.result.bytes) +
             " but transferred " + size;
  }
  return {};
}

std::string indented(const std::string& text) {
  std::string out;
  for (const std::string& line : split(text, '\n'))
    if (!line.empty()) out += "  " + line + "\n";
  return out;
}

std::string cannot_execute(const Backint_Call& call, int error) {
  return "Backint cannot execute " + call.layout.backint_link() + ", " + std::strerror(error) + " (" +
         std::to_string(error) + ")";
}

std::string one_line(const std::string& text) {
  const std::string flat = replace_all(std::string(trim(text)), "\n", ", ");
  return flat.empty() ? "No additional Information was received" : flat;
}

void wait_for_end(Process& process, const Backint_Call& call, const std::function<bool()>& canceled) {
  constexpr std::int64_t step_ms = 10;
  constexpr std::int64_t patience_after_cancel_ms = 10000;
  std::int64_t waited = 0;
  bool signalled = false;
  std::int64_t since_cancel = 0;
  for (; !process.ended(); waited += step_ms) {
    if (call.response_timeout_seconds > 0 && waited > call.response_timeout_seconds * 1000) process.send(SIGKILL);
    if (canceled()) {
      if (!signalled && call.signal_on_cancel) process.send(SIGTERM);
      signalled = true;
      since_cancel += step_ms;
      if (since_cancel > patience_after_cancel_ms) process.send(SIGKILL);
    }
    sleep_ms(step_ms);
  }
}

}  // namespace

std::string run_backint(const Backint_Call& call, std::vector<Backint_Part>& parts,
                        const std::function<bool()>& canceled, const std::function<void(std::size_t)>& transferred,
                        const std::function<std::int64_t()>& bytes_per_second) {
  const std::string program = resolve(call.layout, call.layout.backint_link());
  if (::access(program.c_str(), X_OK) != 0) return cannot_execute(call, errno);
  std::vector<Volume_Stream> streams;
  for (Backint_Part& part : parts) {
    streams.emplace_back(part.content);
    part.size = streams.back().size();
  }
  const std::string in = exchange_file(call.layout);
  const std::string out = exchange_file(call.layout);
  const std::string input = input_text(call, parts);
  if (in.empty() || out.empty() || !append_file(call.layout.real(in), input) || !make_pipes(call.layout, parts))
    return "[110091] Invalid path selection for data backup using backint";

  std::vector<std::string> arguments{call.layout.backint_link(), "-f", "backup"};
  if (!call.parameter_file.empty()) arguments.insert(arguments.end(), {"-p", call.parameter_file});
  arguments.insert(arguments.end(), {"-i", in, "-o", out, "-u", call.user_id, "-s", std::to_string(call.backup_id),
                                     "-c", std::to_string(call.objects), "-l", call.level});
  std::string error;
  {
    Process process;
    if (!process.start(program, arguments)) {
      error = cannot_execute(call, process.error());
    } else {
      append_backint_log(call.layout, call.database, "backint started:\n",
                         "  command: " + join(arguments, " ") + "\n  pid: " + std::to_string(process.pid()) +
                             "\n  input:\n" + indented(input));
      std::atomic<std::uint64_t> total{0};
      const Stream_Watch watch{
          [&] { return canceled() || process.ended(); },
          [&](std::size_t size) {
            total += size;
            transferred(size);
            if (call.kill_after_bytes >= 0 && total >= static_cast<std::uint64_t>(call.kill_after_bytes))
              process.send(SIGKILL);
          },
          bytes_per_second};
      // HANA signals before it lets go of the pipes: an early end of the stream must not look like a good one.
      std::vector<std::thread> writers;
      std::vector<Descriptor> pipes(parts.size());
      std::vector<char> opened(parts.size(), 0);
      for (std::size_t i = 0; i < parts.size(); ++i)
        writers.emplace_back([&, i] {
          pipes[i] = open_pipe(call.layout.real(parts[i].name), watch);
          opened[i] = pipes[i].valid();
          if (pipes[i].valid()) parts[i].result = write_stream(streams[i], pipes[i].get(), watch);
          if (canceled() && call.signal_on_cancel) process.send(SIGTERM);
          pipes[i].reset();
        });
      for (std::thread& writer : writers) writer.join();
      // HANA opens every pipe once, also those of a backup that it gave up.
      const Stream_Watch until_end{[&] { return process.ended(); }, {}, {}};
      std::vector<std::thread> openers;
      for (std::size_t i = 0; i < parts.size(); ++i)
        if (opened[i] == 0) openers.emplace_back([&, i] { open_pipe(call.layout.real(parts[i].name), until_end); });
      wait_for_end(process, call, canceled);
      for (std::thread& opener : openers) opener.join();
      const int code = process.finish();
      const std::string output = read_file(call.layout.real(out)).value_or(std::string());
      if (canceled())
        error = "Backup was canceled by user";
      else if (code != 0)
        error = "[110507] Backint exited with exit code " + std::to_string(code) +
                " instead of 0. console output: " + one_line(process.text()) + ", ";
      for (const Backint_Part& part : parts)
        if (error.empty() && !part.result.complete)
          error =
              "[110203] Not all data could be written: Expected " + std::to_string(page_bytes) + " but transferred 0";
      if (error.empty()) error = read_answers(output, parts);
      append_backint_log(call.layout, call.database, "backint terminated:\n",
                         "  pid: " + std::to_string(process.pid()) + "\n  exit code: " + std::to_string(code) +
                             "\n  output:\n" + indented(output) +
                             (error.empty() ? std::string() : "  exception: exception  1: no.110507 " + error + "\n"));
    }
  }
  for (const Backint_Part& part : parts) ::unlink(call.layout.real(part.name).c_str());
  ::unlink(call.layout.real(in).c_str());
  ::unlink(call.layout.real(out).c_str());
  return error;
}

}  // namespace standin
