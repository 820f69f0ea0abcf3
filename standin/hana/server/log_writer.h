#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "base/ini.h"
#include "engine/redo_log.h"
#include "server/backup.h"

namespace standin {

/// Closes the segments of all services' logs by size and by time, and writes them into log backups by itself, as
/// global.ini says; each is followed by a catalog backup. Safe for all threads.
class Log_Writer {
 public:
  Log_Writer(const Layout& layout, Faults& faults, Backups& backups)
      : layout_(layout), faults_(faults), backups_(backups) {}
  ~Log_Writer() { stop(); }
  /// Begins on a thread of its own; works while `serving` says so.
  void start(std::function<bool()> serving);
  /// Gives up what runs and waits for its end.
  void stop();
  /// Gives up the log backups of a stopped database and waits for their end.
  void end_of(const std::string& database);
  /// How often it has looked at all databases.
  [[nodiscard]] std::int64_t looks() const { return looks_; }
  /// Whether the log area holds all that it can, since no log backup has taken it.
  bool full(System_State& state, const std::string& database);

 private:
  struct Settings {
    bool wanted = false;     ///< the log is kept or overwritten; otherwise nothing happens by itself
    bool normal = false;     ///< log mode
    bool automatic = false;  ///< log backups are written
    bool backint = false;
    std::int64_t timeout_ms = 0;  ///< 0: segments are closed by size only
    std::int64_t segment_bytes = 0;
  };
  struct Due {
    std::string database;
    Service service;
    Service_Log log;
    bool backint = false;
  };
  struct Turn {
    bool busy = false;
    std::int64_t not_before_ms = 0;  ///< the next try after a failure
  };
  [[nodiscard]] Settings settings_of(const std::string& database, const Ini& global, const std::string& switched) const;
  void run(const std::function<bool()>& serving);
  void tick(System_State& state);
  void keep(System_State& state, const Database& database, const Settings& settings);
  bool begin_log(Redo_Log& log, const std::string& database, const std::string& service);
  static bool close_segment(System_State& state, Redo_Log& log, const std::string& service);
  bool close_segments(System_State& state, const Database& database, const Settings& settings);
  void launch(const Due& due);
  void save(const Due& due);
  bool given_up(const std::string& database);
  std::string write(System_State& state, const Due& due, std::int64_t id, bool backint);

  Layout layout_;
  Faults& faults_;
  Backups& backups_;
  std::mutex mutex_;
  std::condition_variable idle_;
  int active_ = 0;
  std::set<std::string> ending_;       ///< databases whose log backups are given up
  std::map<std::string, Turn> turns_;  ///< of "database/service"
  std::atomic<bool> stopping_{false};
  std::atomic<std::int64_t> looks_{0};
  std::thread thread_;
};

}  // namespace standin
