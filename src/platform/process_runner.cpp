#include "platform/process_runner.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/file_root.h"
#include "platform/users.h"

namespace platform {

namespace {

using namespace std::chrono;

/// How long output is still read after the child itself has ended, for a daemon that kept the descriptors.
constexpr milliseconds drain_limit{500};
constexpr std::size_t read_buffer_bytes = 65536;
constexpr int first_other_descriptor = 3;

struct Pipe {
  int ends[2] = {-1, -1};
  ~Pipe() {
    close_end(0);
    close_end(1);
  }
  bool open() { return ::pipe2(ends, O_CLOEXEC) == 0; }
  void close_end(int end) {
    if (ends[end] >= 0) ::close(ends[end]);
    ends[end] = -1;
  }
};

/// Everything the child needs until it runs its program, made before it is there: the child allocates nothing.
struct Prepared {
  std::string program;
  std::string directory;
  std::vector<std::string> texts;
  std::vector<char*> argv;
  std::vector<char*> envp;
  bool change_user = false;
  Os_User user;
};

bool prepare(const Process_Spec& spec, Prepared& prepared) {
  const File_Root& root = File_Root::current();
  prepared.program = root.real(spec.program);
  prepared.directory = root.real(spec.working_directory.empty() ? "/" : spec.working_directory);
  prepared.texts.reserve(1 + spec.arguments.size() + spec.environment.size());
  prepared.texts.push_back(spec.name.empty() ? spec.program : spec.name);
  for (const std::string& argument : spec.arguments) prepared.texts.push_back(argument);
  for (const auto& [name, value] : spec.environment) prepared.texts.push_back(name + "=" + value);
  const std::size_t arguments = 1 + spec.arguments.size();
  for (std::size_t i = 0; i < prepared.texts.size(); ++i)
    (i < arguments ? prepared.argv : prepared.envp).push_back(prepared.texts[i].data());
  prepared.argv.push_back(nullptr);
  prepared.envp.push_back(nullptr);
  if (!spec.user.empty() && ::geteuid() == 0) {
    if (!find_user(spec.user, prepared.user)) {
      errno = ESRCH;
      return false;
    }
    prepared.change_user = prepared.user.uid != 0;
  }
  return true;
}

[[noreturn]] void run_child(const Prepared& prepared, int in, int out, int err, int report) {
  const auto fail = [&report] {
    const int error = errno;
    const ssize_t ignored = ::write(report, &error, sizeof error);
    static_cast<void>(ignored);
    ::_exit(127);
  };
  if (::dup2(in, 0) < 0 || ::dup2(out, 1) < 0 || ::dup2(err, 2) < 0) fail();
  // The report end survives as the first other descriptor; it closes by itself on exec.
  if (report != first_other_descriptor) {
    if (::dup3(report, first_other_descriptor, O_CLOEXEC) < 0) fail();
    report = first_other_descriptor;
  }
  if (::syscall(SYS_close_range, first_other_descriptor + 1, ~0U, 0) != 0)
    for (int fd = first_other_descriptor + 1; fd < 65536; ++fd) ::close(fd);
  for (int number = 1; number < NSIG; ++number) ::signal(number, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  if (prepared.change_user) {
    if (::initgroups(prepared.user.name.c_str(), prepared.user.gid) != 0 || ::setgid(prepared.user.gid) != 0 ||
        ::setuid(prepared.user.uid) != 0)
      fail();
  }
  // A child does not outlive a parent that was cut off. Set after the change of user, which would clear it.
  (void)::prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (::chdir(prepared.directory.c_str()) != 0) fail();
  ::execve(prepared.program.c_str(), prepared.argv.data(), prepared.envp.data());
  fail();
  ::_exit(127);
}

/// Without a change of user the child uses this process's memory until it runs its program: to copy the page tables of
/// a large process, and then each page that one of the two writes to, costs more than most tools do. A child that
/// becomes another user has a memory of its own, since that user must not reach into this one.
pid_t start_child(const Prepared& prepared, int in, int out, int err, int report) {
  // No handler of this process may run in the child, which puts all of them back before it unblocks any signal.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  const pid_t child = prepared.change_user ? ::fork() : ::vfork();
  if (child == 0) run_child(prepared, in, out, err, report);
  const int error = errno;
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  errno = error;
  return child;
}

/// Feeds, reads and waits for one child.
class Conversation {
 public:
  Conversation(pid_t child, int in, int out, int err, const Process_Spec& spec, Output_Sink& sink)
      : child_(child), in_(in), streams_{out, err}, spec_(spec), sink_(sink) {
    ::fcntl(in_, F_SETFL, ::fcntl(in_, F_GETFL) | O_NONBLOCK);
    exited_ = static_cast<int>(::syscall(SYS_pidfd_open, child, 0));
    last_output_ = steady_clock::now();
  }
  ~Conversation() {
    close_input();
    for (int& fd : streams_)
      if (fd >= 0) ::close(fd);
    if (exited_ >= 0) ::close(exited_);
  }

  void talk() {
    if (spec_.input.empty()) close_input();
    while (streams_[0] >= 0 || streams_[1] >= 0 || !gone_) {
      if (gone_ && steady_clock::now() >= give_up_) break;
      step();
    }
    for (std::size_t i = 0; i < streams_.size(); ++i)
      if (streams_[i] >= 0) close_stream(i);
  }

 private:
  void step() {
    std::array<pollfd, 4> wanted{pollfd{streams_[0], POLLIN, 0}, pollfd{streams_[1], POLLIN, 0},
                                 pollfd{in_, POLLOUT, 0}, pollfd{gone_ ? -1 : exited_, POLLIN, 0}};
    const int ready = ::poll(wanted.data(), wanted.size(), timeout_ms());
    if (ready < 0 && errno != EINTR) {
      gone_ = true;
      give_up_ = steady_clock::now();
      return;
    }
    if (ready <= 0) {
      idle();
      return;
    }
    for (std::size_t i = 0; i < 2; ++i)
      if (wanted[i].revents != 0) read_stream(i);
    if (wanted[2].revents != 0) feed();
    if (wanted[3].revents != 0) {
      gone_ = true;
      give_up_ = steady_clock::now() + drain_limit;
    }
  }

  [[nodiscard]] int timeout_ms() const {
    if (gone_) return static_cast<int>(duration_cast<milliseconds>(drain_limit).count());
    if (spec_.idle_interval.count() == 0) return exited_ >= 0 ? -1 : 1000;
    return static_cast<int>(duration_cast<milliseconds>(spec_.idle_interval).count());
  }

  void idle() {
    const auto now = steady_clock::now();
    if (spec_.idle_interval.count() != 0 && now - last_output_ >= spec_.idle_interval) {
      last_output_ = now;
      sink_.on_idle();
    }
    if (exited_ < 0 && !gone_) {
      siginfo_t info{};
      if (::waitid(P_PID, static_cast<id_t>(child_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid != 0) {
        gone_ = true;
        give_up_ = now + drain_limit;
      }
    }
  }

  void read_stream(std::size_t index) {
    char buffer[read_buffer_bytes];
    const ssize_t got = ::read(streams_[index], buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) return;
    if (got <= 0) {
      close_stream(index);
      return;
    }
    last_output_ = steady_clock::now();
    sink_.on_output(name_of(index), buffer, static_cast<std::size_t>(got));
    wipe_memory(buffer, static_cast<std::size_t>(got));
  }

  void close_stream(std::size_t index) {
    ::close(streams_[index]);
    streams_[index] = -1;
    sink_.on_close(name_of(index));
  }

  void feed() {
    const std::string_view rest = spec_.input.view().substr(fed_);
    const ssize_t written = ::write(in_, rest.data(), rest.size());
    if (written < 0 && (errno == EINTR || errno == EAGAIN)) return;
    // A child that does not read its input is its own affair: its exit status tells.
    if (written < 0) {
      close_input();
      return;
    }
    fed_ += static_cast<std::size_t>(written);
    if (fed_ == spec_.input.size()) close_input();
  }

  void close_input() {
    if (in_ >= 0) ::close(in_);
    in_ = -1;
  }

  static Output_Stream name_of(std::size_t index) {
    return index == 0 ? Output_Stream::standard_output : Output_Stream::standard_error;
  }

  pid_t child_;
  int in_;
  std::array<int, 2> streams_;
  const Process_Spec& spec_;
  Output_Sink& sink_;
  int exited_ = -1;
  bool gone_ = false;
  std::size_t fed_ = 0;
  steady_clock::time_point last_output_;
  steady_clock::time_point give_up_;
};

/// A write to a child that has gone must not end this process.
void ignore_sigpipe_once() {
  static const bool done = [] {
    struct sigaction current {};
    if (::sigaction(SIGPIPE, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) ::signal(SIGPIPE, SIG_IGN);
    return true;
  }();
  static_cast<void>(done);
}

Exit_Status wait_for_exit(pid_t child) {
  Exit_Status status;
  status.started = true;
  int raw = 0;
  while (::waitpid(child, &raw, 0) < 0)
    if (errno != EINTR) return status;
  if (WIFEXITED(raw)) status.code = WEXITSTATUS(raw);
  if (WIFSIGNALED(raw)) status.signal = WTERMSIG(raw);
  return status;
}

Exit_Status failed_start(int error) {
  Exit_Status status;
  status.error = error;
  return status;
}

class System_Process_Runner final : public Process_Runner {
 public:
  Exit_Status run(const Process_Spec& spec, Output_Sink& sink) override {
    Prepared prepared;
    if (!prepare(spec, prepared)) return failed_start(errno);
    Pipe in, out, err, report;
    if (!in.open() || !out.open() || !err.open() || !report.open()) return failed_start(errno);
    ignore_sigpipe_once();
    const pid_t child = start_child(prepared, in.ends[0], out.ends[1], err.ends[1], report.ends[1]);
    if (child < 0) return failed_start(errno);
    in.close_end(0);
    out.close_end(1);
    err.close_end(1);
    report.close_end(1);
    int error = 0;
    ssize_t got;
    do got = ::read(report.ends[0], &error, sizeof error);
    while (got < 0 && errno == EINTR);
    if (got == sizeof error) {
      wait_for_exit(child);
      return failed_start(error);
    }
    sink.on_start(child);
    {
      Conversation conversation(child, in.ends[1], out.ends[0], err.ends[0], spec, sink);
      in.ends[1] = out.ends[0] = err.ends[0] = -1;
      conversation.talk();
    }
    return wait_for_exit(child);
  }
};

System_Process_Runner system_runner;
std::atomic<Process_Runner*> current_runner{&system_runner};

}  // namespace

Process_Runner& Process_Runner::current() { return *current_runner.load(); }

Scoped_Process_Runner::Scoped_Process_Runner(Process_Runner& runner) : previous_(current_runner.exchange(&runner)) {}
Scoped_Process_Runner::~Scoped_Process_Runner() { current_runner.store(previous_); }

std::string describe(const Exit_Status& status) {
  if (!status.started) return std::string("could not be started: ") + std::strerror(status.error);
  if (status.signal != 0) return "was killed by signal " + std::to_string(status.signal);
  return "ended with exit code " + std::to_string(status.code);
}

}  // namespace platform
