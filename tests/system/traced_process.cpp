#include "traced_process.h"

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <thread>
#include <vector>

#include "processes.h"

namespace system_tests {

namespace fs = std::filesystem;

namespace {

constexpr int system_call_stop = SIGTRAP | 0x80;
constexpr int event_shift = 16;
constexpr auto options = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL;
/// Between two looks at threads that all run.
constexpr std::chrono::microseconds breath{200};

void* number(long value) { return reinterpret_cast<void*>(value); }

/// Goes on to the next system call's begin or end.
void go_on(pid_t thread, int signal = 0) { (void)::ptrace(PTRACE_SYSCALL, thread, nullptr, number(signal)); }

/// Where the new name stands among the arguments of a system call that renames; -1 for any other.
int place_of_new_name(unsigned long long call) {
#ifdef SYS_rename
  if (call == SYS_rename) return 1;
#endif
#ifdef SYS_renameat
  if (call == SYS_renameat) return 3;
#endif
  return call == SYS_renameat2 ? 3 : -1;
}

std::vector<pid_t> threads_of(pid_t process) {
  std::vector<pid_t> found;
  std::error_code error;
  for (fs::directory_iterator entry("/proc/" + std::to_string(process) + "/task", error), end; !error && entry != end;
       entry.increment(error))
    found.push_back(static_cast<pid_t>(std::stol(entry->path().filename().string())));
  return found;
}

}  // namespace

Traced_Process::~Traced_Process() {
  if (!threads_.empty()) kill();
}

bool Traced_Process::take(pid_t thread) {
  if (::ptrace(PTRACE_SEIZE, thread, nullptr, number(options)) != 0) return false;
  threads_[thread];
  // It stops where it is, and goes from system call to system call then.
  (void)::ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr);
  return true;
}

bool Traced_Process::follow() {
  // A thread that is not followed yet may begin another one: until there is none of them.
  for (bool one_more = true; one_more;) {
    one_more = false;
    for (const pid_t thread : threads_of(pid_)) {
      if (threads_.contains(thread)) continue;
      if (take(thread)) {
        one_more = true;
      } else if (errno == EPERM && !threads_.empty()) {
        // Begun by one that is followed, and so is it.
        threads_[thread];
      } else if (errno != ESRCH) {
        return false;
      }
    }
  }
  return !threads_.empty();
}

bool Traced_Process::stands_at_rename(const std::string& name, Moment moment) {
  const auto end = std::chrono::steady_clock::now() + state_limit;
  while (std::chrono::steady_clock::now() < end && !threads_.empty()) {
    bool any = false;
    std::vector<pid_t> known;
    for (const auto& [thread, what] : threads_) known.push_back(thread);
    for (const pid_t thread : known) {
      int status = 0;
      const pid_t got = ::waitpid(thread, &status, WNOHANG | __WALL);
      if (got == 0) continue;
      any = true;
      if (got < 0 || !WIFSTOPPED(status))
        threads_.erase(thread);
      else if (handle(thread, status, name, moment))
        return true;
    }
    if (!any) std::this_thread::sleep_for(breath);
  }
  return false;
}

bool Traced_Process::handle(pid_t thread, int status, const std::string& name, Moment moment) {
  const int signal = WSTOPSIG(status);
  const int event = status >> event_shift;
  if (event == PTRACE_EVENT_CLONE) {
    unsigned long begun = 0;
    // The new one is followed from its first step on.
    if (::ptrace(PTRACE_GETEVENTMSG, thread, nullptr, &begun) == 0) threads_[static_cast<pid_t>(begun)];
  }
  if (event == 0 && signal == system_call_stop && is_there(thread, name, moment)) return true;
  go_on(thread, event == 0 && signal != system_call_stop ? signal : 0);
  return false;
}

bool Traced_Process::is_there(pid_t thread, const std::string& name, Moment moment) {
  __ptrace_syscall_info info{};
  if (::ptrace(PTRACE_GET_SYSCALL_INFO, thread, number(sizeof info), &info) <= 0) return false;
  bool& renames = threads_[thread].renames;
  if (info.op == PTRACE_SYSCALL_INFO_EXIT) return renames && moment == Moment::after;
  const int place = info.op == PTRACE_SYSCALL_INFO_ENTRY ? place_of_new_name(info.entry.nr) : -1;
  renames = place >= 0 && text_at(thread, info.entry.args[place]).ends_with(name);
  return renames && moment == Moment::before;
}

std::string Traced_Process::text_at(pid_t thread, unsigned long address) const {
  constexpr std::size_t piece = 64;  // a text may end just before memory that cannot be read
  std::string text;
  std::array<char, piece> buffer{};
  for (;;) {
    const unsigned long from = address + text.size();
    iovec here{buffer.data(), piece - from % piece};
    iovec there{reinterpret_cast<void*>(from), here.iov_len};
    const ssize_t got = ::process_vm_readv(thread, &here, 1, &there, 1, 0);
    if (got <= 0) return text;
    const auto size = static_cast<std::size_t>(got);
    const std::size_t length = ::strnlen(buffer.data(), size);
    text.append(buffer.data(), length);
    if (length < size) return text;
  }
}

void Traced_Process::kill() {
  if (killed_) return;
  killed_ = true;
  (void)::kill(pid_, SIGKILL);
  // A process ends for its parent when those who follow its other threads have seen their ends.
  for (const auto& [thread, what] : threads_) {
    int status = 0;
    while (thread != pid_ && ::waitpid(thread, &status, __WALL) == thread && WIFSTOPPED(status)) continue;
  }
  threads_.clear();
}

}  // namespace system_tests
