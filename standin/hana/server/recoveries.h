#pragma once

#include <condition_variable>
#include <mutex>
#include <set>

#include "server/backup.h"
#include "server/log_writer.h"
#include "server/recovery_statement.h"

namespace standin {

/// The recoveries of all databases, one at a time each. Safe for all threads.
class Recoveries {
 public:
  Recoveries(const Layout& layout, Faults& faults, Backups& backups, Log_Writer& log_writer)
      : layout_(layout), faults_(faults), backups_(backups), log_writer_(log_writer) {}
  /// A tenant that is stopped; it is started when its recovery has ended well. Returns at its end.
  std::optional<Sql_Error> recover_tenant(System_State& state, const Recovery_Request& request);
  /// The system database or a single container, while the instance starts.
  std::optional<Sql_Error> recover_system(System_State& state, const Recovery_Request& request);
  bool running(const std::string& database);
  /// Cancels what runs and waits for its end.
  void stop_all();

 private:
  std::optional<Sql_Error> run(System_State& state, const Recovery_Request& request, const std::string& database);
  bool start_tenant(System_State& state, const std::string& database);
  Layout layout_;
  Faults& faults_;
  Backups& backups_;
  Log_Writer& log_writer_;
  std::mutex mutex_;
  std::condition_variable idle_;
  std::set<std::string> running_;
  std::atomic<bool> stopping_{false};
};

}  // namespace standin
