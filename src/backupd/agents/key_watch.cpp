#include "backupd/agents/key_watch.h"

#include <set>
#include <utility>

#include "platform/log.h"

namespace backupd {

Key_Watch::~Key_Watch() {
  stopping_.set();
  if (thread_.joinable()) thread_.join();
}

void Key_Watch::start() {
  thread_ = std::thread([this] { run(); });
}

void Key_Watch::run() {
  while (!platform::Clock::current().wait_for(stopping_, interval)) look();
}

void Key_Watch::look() {
  Keys watched;
  {
    const std::lock_guard lock(mutex_);
    watched = watched_;
  }
  std::set<std::int64_t> good;
  if (watched.empty() || !keys_.good(good)) return;
  for (const auto& [connection, key_id] : watched) {
    if (good.contains(key_id)) continue;
    {
      // Told once, however long the socket takes to end.
      const std::lock_guard lock(mutex_);
      if (watched_.erase(connection) == 0) continue;
    }
    D3_WARNING("The key %q of the agent of the host %C is no longer good, its connection is closed\n",
               static_cast<ACE_INT64>(key_id), connection->host_uuid().c_str());
    connection->close();
  }
}

Key_Watch::Watched::Watched(Key_Watch& watch, std::shared_ptr<Agent_Connection> connection, std::int64_t key_id)
    : watch_(watch), connection_(std::move(connection)) {
  const std::lock_guard lock(watch_.mutex_);
  watch_.watched_.emplace(connection_, key_id);
}

Key_Watch::Watched::~Watched() {
  const std::lock_guard lock(watch_.mutex_);
  watch_.watched_.erase(connection_);
}

}  // namespace backupd
