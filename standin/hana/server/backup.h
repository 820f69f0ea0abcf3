#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include "catalog/catalog.h"
#include "catalog/views.h"
#include "engine/sql_text.h"
#include "engine/volume.h"
#include "server/catalog_backups.h"
#include "server/faults.h"

namespace standin {

struct Backup_Request {
  std::string type = complete_backup;
  std::string database;
  bool backint = true;
  std::string prefix;
  std::string tool_option;
  std::string comment;
  std::string statement;
};

struct Running_Service {
  Service service;
  std::atomic<std::int64_t> size{0};
  std::atomic<std::int64_t> transferred{0};
};

struct Running_Backup {
  Backup_Request request;
  std::int64_t id = 0;
  std::int64_t entry = 0;
  std::vector<std::unique_ptr<Running_Service>> services;
  std::atomic<std::int64_t> cancel_at_ms{0};  ///< 0: not cancelled
  std::atomic<bool> cancel_asked{false};
  std::atomic<bool> cancel_held{false};  ///< it is pending no longer than the fault stands that says how long
  std::atomic<bool> unthrottled{false};  ///< its streams go as fast as they can
  std::string cancel_outcome;            ///< written under the mutex before cancel_asked
  std::mutex mutex;
  std::condition_variable ended;
  bool decided = false;  ///< how it ends stands: a cancel comes too late
  bool finished = false;
  std::int64_t end_ms = 0;
  std::string state = "running";
  std::optional<Sql_Error> error;
};

/// The data backups of all databases: one at a time each. Safe for all threads.
class Backups {
 public:
  Backups(const Layout& layout, Faults& faults)
      : layout_(layout), faults_(faults), catalogs_([this] { return next_id(); }) {}
  ~Backups() { stop_all(); }
  /// Begins on a thread of its own; the error when HANA refuses it at once.
  std::optional<Sql_Error> start(System_State& state, const Backup_Request& request,
                                 std::shared_ptr<Running_Backup>& running);
  static std::optional<Sql_Error> wait(Running_Backup& running);
  /// Asks for the end; returns while the backup is still "cancel pending".
  std::optional<Sql_Error> cancel(System_State& state, const std::string& database, std::int64_t id);
  std::vector<Progress_Row> progress();
  /// Ends the database's data backup, if one runs, and waits for its end; nothing is told of its progress then.
  void end_of(const std::string& database);
  /// Cancels what runs and waits for its end.
  void stop_all();
  /// A new backup id: the time, but never the same one twice.
  std::int64_t next_id();
  Catalog_Backups& catalogs() { return catalogs_; }

 private:
  void run(const std::shared_ptr<Running_Backup>& running, std::optional<Backup_Base> base);
  std::optional<Sql_Error> cancel_running(System_State& state, Running_Backup& running);
  Layout layout_;
  Faults& faults_;
  Catalog_Backups catalogs_;
  std::mutex mutex_;
  std::condition_variable idle_;
  int active_ = 0;
  std::int64_t last_id_ = 0;
  std::map<std::string, std::shared_ptr<Running_Backup>> newest_;
};

/// The work of one backup, on its thread.
class Backup_Run {
 public:
  Backup_Run(const Layout& layout, Faults& faults, Running_Backup& running, Catalog_Backups& catalogs)
      : layout_(layout), faults_(faults), running_(running), catalogs_(catalogs) {}
  /// The error's text, empty when it was successful.
  std::string execute(std::optional<Backup_Base> base);

 private:
  struct Piece;
  [[nodiscard]] std::string name_of(int volume, int part, std::int64_t base_id) const;
  std::string write_services(System_State& state, const Savepoint& savepoint, const Backup_Base& base);
  std::string write_service(Running_Service& service, std::vector<Piece>& pieces, std::size_t objects);
  std::string write_to_file(Piece& piece, Running_Service& service);
  enum class Files { begin, end };
  bool note_files(System_State& state, const std::vector<std::vector<Piece>>& all, const Savepoint& savepoint,
                  Files when);
  void write_catalog_backup(System_State& state);
  std::string header_of(const std::string& service, int volume, int part, const Savepoint& savepoint,
                        const Backup_Base& base) const;
  void log(const char* level, const std::string& text) const;
  [[nodiscard]] bool canceled() const;
  /// Waits while a cancel is pending; then how it ends: "successful", "failed" or "canceled".
  std::string decide_outcome(std::string& error);
  /// Of global.ini, [backup]; the database's own layer wins.
  [[nodiscard]] std::string setting(const char* key, const char* otherwise) const;
  [[nodiscard]] std::int64_t rate();

  Layout layout_;
  Faults& faults_;
  Running_Backup& running_;
  Catalog_Backups& catalogs_;
};

}  // namespace standin
