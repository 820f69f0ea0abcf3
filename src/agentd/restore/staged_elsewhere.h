#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "agentd/restore/staged_name.h"
#include "platform/clock.h"

namespace agentd {

/// When a restore is over, has the agents of the system's other hosts remove what it has staged there
/// ("staged.remove"): no job runs there whose end would. One thread asks them through backupd. A host that is away is
/// asked again for a while; later its own agent's start removes the files. Any thread.
class Staged_Elsewhere {
 public:
  struct Callbacks {
    /// Whether backupd is connected now.
    std::function<bool()> connected;
    /// Whether a restore of the same origin goes on here: nobody is asked until it has ended.
    std::function<bool(const Staged_Name&)> in_use;
  };

  Staged_Elsewhere(std::string host_uuid, Callbacks callbacks);
  ~Staged_Elsewhere() { stop(); }
  Staged_Elsewhere(const Staged_Elsewhere&) = delete;
  Staged_Elsewhere& operator=(const Staged_Elsewhere&) = delete;

  void start();
  /// What was staged by a restore that has ended.
  void restore_over(const std::vector<Staged_Name>& names);
  /// A connection to backupd stands.
  void connected() { work_.set(); }
  /// Waits until each host was asked once for all that is over, or `limit` has passed.
  void finish(std::chrono::nanoseconds limit);
  /// Ends the thread; what it waits for through backupd must end. More than once is fine.
  void stop();

  /// One round of the thread. For tests.
  void work();

  static constexpr std::chrono::seconds pause{60};
  /// How often a host is asked, and backupd which hosts there are. What is asked again within a pause, because the end
  /// of another restore woke the thread, counts once.
  static constexpr unsigned tries = 10;

 private:
  /// Tries that were in vain, no more than one for each pause.
  struct Tries {
    unsigned counted = 0;
    std::chrono::steady_clock::time_point last;  ///< when the last one was counted

    /// Whether one more at this moment would be the last that there is.
    [[nodiscard]] bool would_end(std::chrono::steady_clock::time_point now) const {
      return counts(now) && counted + 1 >= tries;
    }
    /// Counts one; true when it was the last.
    bool end(std::chrono::steady_clock::time_point now);

   private:
    [[nodiscard]] bool counts(std::chrono::steady_clock::time_point now) const {
      return counted == 0 || now - last >= pause;
    }
  };
  struct Request {
    Staged_Name name;
    bool hosts_known = false;
    Tries looked;                    ///< backupd was asked for them
    bool told = false;               ///< the log says already what keeps it
    std::vector<std::string> hosts;  ///< still to be asked
    Tries asked;
  };

  void run();
  [[nodiscard]] bool settled(Request& request) const;
  [[nodiscard]] bool find_hosts(Request& request, std::chrono::steady_clock::time_point now) const;
  void ask(Request& request) const;

  const std::string host_uuid_;
  const Callbacks callbacks_;
  std::mutex mutex_;
  std::list<Request> requests_;  ///< guarded by mutex_
  platform::Wait_Event work_;
  platform::Wait_Event idle_;  ///< nothing that was not tried yet
  platform::Wait_Event stopping_;
  std::thread thread_;
};

}  // namespace agentd
