#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/recovered_store.h"
#include "engine/volume_reader.h"
#include "server/recovery_objects.h"
#include "server/recovery_statement.h"
#include "server/recovery_strategy.h"

namespace standin {

/// One recovery of a database that is stopped, with its lines in backup.log.
class Recovery_Run {
 public:
  /// `id`: the recovery's own, newer than all backups; `canceled`: the instance stops.
  Recovery_Run(System_State& state, Faults& faults, const Recovery_Request& request, std::string database,
               std::int64_t id, std::function<bool()> canceled);
  ~Recovery_Run();
  /// Error 449: nothing was changed. Error 448: the database is broken until another recovery ends well.
  std::optional<Sql_Error> execute();

 private:
  using Failure = std::optional<Sql_Error>;
  struct Data_Backup;
  Failure work();
  // Before anything is changed:
  void locate_source();
  Failure read_catalog();
  Failure choose();
  Failure choose_by_prefix();
  Failure check_access();
  // The database's new content:
  Failure read_first_topology();
  Failure restore_data();
  std::string read_topology(Data_Backup& backup);
  Failure restore_backup(Data_Backup& backup, bool first);
  std::string restore_service(const Data_Backup& backup, const Topology_Service& service);
  Failure replay_logs();
  Failure replay_volume(const std::vector<Log_Piece>& pieces);
  Failure replay_piece(const Log_Piece& piece, const std::string& text);
  Failure install();
  bool install_history();

  [[nodiscard]] bool takes(const Topology_Service& service) const;
  [[nodiscard]] std::string reached_text() const;
  /// What a fault line wants at this stage.
  Failure fault(const char* stage, int code);
  static Failure no_strategy(const std::string& why);
  static Failure not_completed(const std::string& why);
  void log(const char* level, const std::string& text) const;

  System_State& state_;
  Layout layout_;
  Faults& faults_;
  Recovery_Request request_;
  std::string database_;
  std::int64_t id_;
  std::function<bool()> canceled_;
  bool in_place_ = true;
  std::int64_t limit_ms_ = 0;
  Recovery_Source source_;
  std::unique_ptr<Recovery_Objects> objects_;
  Catalog_Image catalog_;
  bool catalog_found_ = false;
  Recovery_Plan plan_;
  std::vector<Data_Backup> backups_;
  Recovered_Store store_;
  std::int64_t branch_ = 0;    ///< of that position
  std::int64_t position_ = 0;  ///< of the log up to which commits are in
  bool target_reached_ = false;
};

}  // namespace standin
