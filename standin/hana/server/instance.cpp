#include "server/instance.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <thread>

#include "base/clock.h"
#include "base/text.h"
#include "base/wire.h"
#include "engine/system_replication.h"
#include "server/session.h"

namespace standin {

Instance::Instance(Layout layout)
    : layout_(std::move(layout)),
      faults_(layout_.state("faults.conf")),
      backups_(layout_, faults_),
      log_writer_(layout_, faults_, backups_),
      recoveries_(layout_, faults_, backups_, log_writer_),
      startup_recovery_(layout_, faults_, recoveries_),
      master_role_(layout_, faults_) {}

void Instance::request_stop() { phase_ = stopping; }

bool Instance::write_pid() { return write_file(layout_.state("server.pid"), std::to_string(::getpid()) + "\n"); }

void Instance::consider_role() {
  if (!master_role_.consider(phase_ == running)) return;
  System_State state;
  if (!state.open(layout_)) return;
  // What a former master left.
  Catalog(state).fail_unfinished();
  drop_left_files(layout_);
  static_cast<void>(state.write_database_list());
  // A candidate that takes over cannot open what a recovery has left in pieces.
  if (phase_ == running && state.is_broken(layout_.multi() ? system_database : layout_.sid)) request_stop();
}

bool Instance::takes_logons() const {
  return phase_ == running && serves_databases() && now_ms() >= startup_recovery_.logons_from_ms();
}

void Instance::go_on_starting(std::int64_t ready_at) {
  if (phase_ != starting) return;
  if (startup_recovery_.state() == Startup_Recovery::failed) request_stop();
  Phase expected = starting;
  if (startup_recovery_.state() != Startup_Recovery::running && now_ms() >= ready_at)
    phase_.compare_exchange_strong(expected, running);
}

int Instance::serve() {
  start_ms_ = now_ms();
  const std::string socket_path = layout_.state("socket");
  const Descriptor listener = listen_at(socket_path);
  if (!listener.valid() || !write_pid()) return 1;
  consider_role();
  if (master_role_.held() && !load_replication(layout_).secondary()) startup_recovery_.begin();
  constexpr std::int64_t default_start_ms = 300;
  constexpr std::int64_t default_stop_ms = 100;
  constexpr int poll_ms = 50;
  const std::int64_t ready_at = start_ms_ + faults_.number("start_ms", default_start_ms);
  std::int64_t gone_at = 0;
  bool stop_held = false;
  log_writer_.start(
      [this] { return phase_ == running && master_role_.held() && !load_replication(layout_).secondary(); });
  // Tools may ask for the state while the backups end.
  std::atomic<bool> backups_ended{false};
  std::thread ending;
  for (;;) {
    const std::int64_t now = now_ms();
    go_on_starting(ready_at);
    if (phase_ != stopping) consider_role();
    if (phase_ == stopping && gone_at == 0) {
      const auto stop_ms = faults_.take("stop_ms");
      stop_held = stop_ms.has_value();
      gone_at = now + parse_number(stop_ms.value_or("")).value_or(default_stop_ms);
      ending = std::thread([&] {
        recoveries_.stop_all();
        log_writer_.stop();
        backups_.stop_all();
        backups_ended = true;
      });
    }
    if (backups_ended && (now >= gone_at || (stop_held && !faults_.stands("stop_ms")))) break;
    pollfd entry{listener.get(), POLLIN, 0};
    if (::poll(&entry, 1, poll_ms) <= 0) continue;
    const int fd = ::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    ++connections_;
    std::thread([this, fd] {
      {
        const Descriptor connection(fd);
        serve_connection(*this, fd);
      }
      --connections_;
    }).detach();
  }
  ending.join();
  ::unlink(socket_path.c_str());
  ::unlink(layout_.state("server.pid").c_str());
  // Connections that wait for their peers end with the process.
  std::_Exit(0);
}

}  // namespace standin
