#include "support/scripted_process_runner.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <limits>
#include <optional>

#include "platform/file_root.h"
#include "platform/unique_descriptor.h"

namespace support {

namespace {

void print(platform::Output_Sink& sink, platform::Output_Stream stream, const std::string& text) {
  // Exact-size heap copies: a reader that looks past its end is seen by the address sanitizer. Two halves: lines do
  // not arrive whole in real life either.
  const std::size_t half = text.size() / 2;
  for (const std::string_view piece : {std::string_view(text).substr(0, half), std::string_view(text).substr(half)}) {
    if (piece.empty()) continue;
    const std::vector<char> exact(piece.begin(), piece.end());
    sink.on_output(stream, exact.data(), exact.size());
  }
}

/// No process has it: a signal to it finds nobody.
constexpr pid_t pid_of_nobody = std::numeric_limits<pid_t>::max();
/// How long a child hangs until the test fails: something should have ended it.
constexpr std::chrono::seconds patience{60};
constexpr int moment_ms = 1;

/// A process that does nothing, for a child that hangs. It takes no signal settings and no descriptors of the test.
class Silent_Process {
 public:
  Silent_Process() {
    posix_spawn_file_actions_t files;
    posix_spawnattr_t settings;
    sigset_t signals;
    ::posix_spawn_file_actions_init(&files);
    ::posix_spawn_file_actions_addclosefrom_np(&files, 0);
    ::posix_spawnattr_init(&settings);
    ::posix_spawnattr_setflags(&settings, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    sigfillset(&signals);
    ::posix_spawnattr_setsigdefault(&settings, &signals);
    sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&settings, &signals);
    char name[] = "sleep";
    char span[] = "600";
    char* const arguments[] = {name, span, nullptr};
    char* const environment[] = {nullptr};
    if (::posix_spawn(&pid_, "/bin/sleep", &files, &settings, arguments, environment) != 0) pid_ = -1;
    ::posix_spawnattr_destroy(&settings);
    ::posix_spawn_file_actions_destroy(&files);
    if (pid_ > 0) ended_ = platform::Unique_Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
  }
  ~Silent_Process() {
    if (pid_ > 0) (void)end();
  }
  Silent_Process(const Silent_Process&) = delete;
  Silent_Process& operator=(const Silent_Process&) = delete;

  [[nodiscard]] bool runs() const { return ended_.valid(); }
  [[nodiscard]] pid_t pid() const { return pid_; }
  /// True when it has ended; waits for that at most so long.
  [[nodiscard]] bool has_ended(int limit_ms) const {
    pollfd wanted{ended_.get(), POLLIN, 0};
    return ::poll(&wanted, 1, limit_ms) > 0;
  }
  /// The signal that it ended by; its own end is one more.
  [[nodiscard]] int end() {
    int raw = 0;
    ::kill(pid_, SIGKILL);
    while (::waitpid(pid_, &raw, 0) < 0 && errno == EINTR) continue;
    pid_ = -1;
    return WIFSIGNALED(raw) ? WTERMSIG(raw) : 0;
  }

 private:
  pid_t pid_ = -1;
  platform::Unique_Descriptor ended_;
};

/// Until somebody ends it.
void hang(const Silent_Process& process, const platform::Process_Spec& spec, platform::Output_Sink& sink) {
  const auto limit = std::chrono::steady_clock::now() + patience;
  while (!process.has_ended(moment_ms)) {
    if (std::chrono::steady_clock::now() >= limit) {
      ADD_FAILURE() << "nobody ended a process that hangs: " << spec.program;
      return;
    }
    if (spec.idle_interval.count() != 0) sink.on_idle();
  }
}

/// 0, or why a child cannot start there.
int find_directory_error(const std::string& documented) {
  struct stat status {};
  if (documented.empty()) return 0;
  if (::stat(platform::File_Root::current().real(documented).c_str(), &status) != 0) return errno;
  return S_ISDIR(status.st_mode) ? 0 : ENOTDIR;
}

/// What the sink sees of a child, and how it ends.
platform::Exit_Status play(const Scripted_Child& child, const platform::Process_Spec& spec,
                           platform::Output_Sink& sink) {
  platform::Exit_Status status;
  std::optional<Silent_Process> process;
  if (child.hangs) process.emplace();
  if (process && !process->runs()) {
    ADD_FAILURE() << "no process for a child that hangs";
    status.error = EAGAIN;
    return status;
  }
  status.started = true;
  sink.on_start(process ? process->pid() : pid_of_nobody);
  if (child.before) child.before();
  print(sink, platform::Output_Stream::standard_output, child.standard_output);
  print(sink, platform::Output_Stream::standard_error, child.standard_error);
  if (process) hang(*process, spec, sink);
  sink.on_close(platform::Output_Stream::standard_output);
  sink.on_close(platform::Output_Stream::standard_error);
  status.signal = process ? process->end() : child.signal;
  status.code = status.signal != 0 ? -1 : child.code;
  return status;
}

}  // namespace

Scripted_Process_Runner::Scripted_Process_Runner() : scope_(*this) {}
Scripted_Process_Runner::~Scripted_Process_Runner() = default;

platform::Exit_Status Scripted_Process_Runner::run(const platform::Process_Spec& spec, platform::Output_Sink& sink) {
  const Seen_Call call{spec.program,
                       spec.arguments,
                       spec.environment,
                       std::string(spec.input.view()),
                       spec.user,
                       spec.name.empty() ? spec.program : spec.name,
                       spec.working_directory};
  std::vector<Rule> rules;
  {
    const std::lock_guard guard(mutex_);
    calls_.push_back(call);
    rules = rules_;
  }
  Scripted_Child child;
  bool found = false;
  for (const Rule& rule : rules)
    if (rule(call, child)) {
      found = true;
      break;
    }
  platform::Exit_Status status;
  if (!found) {
    std::string shown = call.program;
    for (const std::string& argument : call.arguments) shown += " [" + argument + "]";
    ADD_FAILURE() << "process nobody expected: " << shown << "\ninput: " << call.input;
    status.error = ENOENT;
    return status;
  }
  status.error = child.start_error != 0 ? child.start_error : find_directory_error(spec.working_directory);
  return status.error != 0 ? status : play(child, spec, sink);
}

bool Scripted_Process_Runner::list(std::vector<platform::Running_Process>& processes) {
  const std::lock_guard guard(mutex_);
  ++listings_;
  if (list_fails_) {
    errno = EACCES;
    return false;
  }
  processes = processes_;
  return true;
}

void Scripted_Process_Runner::let_run(std::vector<platform::Running_Process> processes) {
  const std::lock_guard guard(mutex_);
  processes_ = std::move(processes);
}

void Scripted_Process_Runner::fail_to_list(bool fails) {
  const std::lock_guard guard(mutex_);
  list_fails_ = fails;
}

std::size_t Scripted_Process_Runner::listings() const {
  const std::lock_guard guard(mutex_);
  return listings_;
}

void Scripted_Process_Runner::on(Rule rule) {
  const std::lock_guard guard(mutex_);
  rules_.push_back(std::move(rule));
}

void Scripted_Process_Runner::on_program(const std::string& program, Scripted_Child child) {
  on([program, child](const Seen_Call& call, Scripted_Child& answer) {
    if (!call.program.ends_with(program)) return false;
    answer = child;
    return true;
  });
}

std::vector<Seen_Call> Scripted_Process_Runner::calls() const {
  const std::lock_guard guard(mutex_);
  return calls_;
}

void Scripted_Process_Runner::clear_rules() {
  const std::lock_guard guard(mutex_);
  rules_.clear();
}

}  // namespace support
