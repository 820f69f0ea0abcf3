#include "hdbbackint/signal_watcher.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>

#include "hdbbackint/console.h"
#include "platform/log.h"

namespace hdbbackint {

namespace {

/// The process that started us, as something poll can wait for.
int open_parent() {
  const pid_t parent = ::getppid();
  return parent <= 1 ? -1 : static_cast<int>(::syscall(SYS_pidfd_open, parent, 0));
}

}  // namespace

Signal_Watcher::Signal_Watcher(Stop_Source& stop) : stop_(stop) {
  sigset_t stopping;
  ::sigemptyset(&stopping);
  ::sigaddset(&stopping, SIGTERM);
  ::sigaddset(&stopping, SIGINT);
  ::sigaddset(&stopping, SIGHUP);
  ::pthread_sigmask(SIG_BLOCK, &stopping, nullptr);
  // A reader that goes away is an answer of write, not the end of the process.
  ::signal(SIGPIPE, SIG_IGN);
  // The same for a file that outgrows the limit of the user.
  ::signal(SIGXFSZ, SIG_IGN);
  signals_.reset(::signalfd(-1, &stopping, SFD_CLOEXEC));
  parent_.reset(open_parent());
  ended_.reset(::eventfd(0, EFD_CLOEXEC));
  thread_ = std::thread([this] { watch(); });
}

Signal_Watcher::~Signal_Watcher() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(ended_.get(), &one, sizeof one);
  thread_.join();
}

void Signal_Watcher::watch() {
  pollfd waits[] = {{ended_.get(), POLLIN, 0}, {signals_.get(), POLLIN, 0}, {parent_.get(), POLLIN, 0}};
  while (::poll(waits, 3, -1) < 0) {
    if (errno != EINTR) return;
  }
  if (waits[0].revents != 0) return;
  const bool signalled = waits[1].revents != 0;
  report_failure(signalled ? "stopped by a signal" : "stopped, as the process that called it has ended");
  stop_.request();
}

}  // namespace hdbbackint
