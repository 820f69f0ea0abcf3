#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "backupd/agents/agent_connection.h"
#include "backupd/http/key_store.h"
#include "platform/clock.h"

namespace backupd {

/// Closes the connections of agents whose key is no longer good. A key is revoked by another process, in the database
/// alone, so this looks there now and then: once for all connections, and not while there is none. What cannot be read
/// closes nothing. Any thread.
class Key_Watch {
 public:
  /// A revoked key is good for so long at most, and for the time of one look.
  static constexpr std::chrono::seconds interval{15};

  explicit Key_Watch(Key_Store& keys) : keys_(keys) {}
  ~Key_Watch();
  Key_Watch(const Key_Watch&) = delete;
  Key_Watch& operator=(const Key_Watch&) = delete;

  /// From now on it looks. Once.
  void start();

  /// A connection is watched for the life of this object. It must be attached already.
  class Watched {
   public:
    Watched(Key_Watch& watch, std::shared_ptr<Agent_Connection> connection, std::int64_t key_id);
    ~Watched();
    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;

   private:
    Key_Watch& watch_;
    const std::shared_ptr<Agent_Connection> connection_;
  };

 private:
  using Keys = std::map<std::shared_ptr<Agent_Connection>, std::int64_t>;

  void run();
  void look();

  Key_Store& keys_;
  std::mutex mutex_;
  Keys watched_;  ///< ids of their keys; guarded by mutex_
  platform::Wait_Event stopping_;
  std::thread thread_;
};

}  // namespace backupd
