#pragma once

#include <ctime>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "agent/backupd_client/http_session.h"
#include "agentd/daemon.h"
#include "contract/backupd/running_server.h"
#include "histories/change_watch.h"
#include "histories/hana_system.h"
#include "json/value.h"
#include "support/scoped_zone.h"
#include "support/standing_clock.h"

namespace histories {

/// What histories happen to, and where their copies go.
enum class Landscape {
  tenants,            ///< of one system, and so are their copies
  single_containers,  ///< systems without tenants; a copy is another one
  old_systems,        ///< the same, of a HANA without deltas, which recovers by its own catalog alone
  system_databases,   ///< beside a tenant of the same system; the copy of a system database is another system
  two_systems,        ///< tenants; a copy is one of the other system
};

/// A host with stand-in HANAs, hdbbackint, a backupd, and the host agent in the test's process, which carries the
/// built module. All but backupd live at a time that moves only when a history moves it. Every history gets databases
/// of its own, so that one host serves many.
class History_System {
 public:
  /// In the past, since backupd keeps the world's time and refuses what lies ahead of it. The zone matters, since HANA
  /// writes local times into its logs.
  History_System(Landscape landscape, const char* zone, std::time_t begin);
  ~History_System();
  History_System(const History_System&) = delete;
  History_System& operator=(const History_System&) = delete;

  /// Makes an empty database and starts it.
  Database add_database();
  /// Another one, for the same history.
  Database add_database_beside(const Database& other);
  /// Another one, to be filled with a copy.
  Database add_target_for(const Database& origin);
  /// Ends the database's work. Its backups stay.
  void retire(const Database& database);
  /// HANA saves so many logs of it at once, each with a backup of its catalog behind it.
  [[nodiscard]] std::size_t volumes_of(const Database& database) const;
  /// It knows no deltas, and recovers by its own catalog.
  [[nodiscard]] bool is_old(const Database& database) const { return hana_of(database).kind().is_old(); }
  [[nodiscard]] long log_looks(const Database& database) const { return hana_of(database).log_looks(); }

  [[nodiscard]] std::time_t begin() const { return begin_; }
  [[nodiscard]] std::time_t now() const { return platform::Clock::current().wall_seconds(); }
  void move_to(std::time_t moment) { clock_.move_to(moment); }

  /// SQL in a database, its answer as comma-separated values without quotes; throws when HANA refuses.
  std::string sql(const std::string& statement, const Database& database) const;
  /// Has HANA make a full backup by itself, into files.
  void back_up_to_files(const Database& database) const;
  /// Runs a data backup ("full", "incremental", "differential") to a pool; the state in which it ended.
  std::string back_up(const Database& database, const std::string& kind, const std::string& pool) const;
  /// Runs a restore into a database, to a time or, without one, to a set; the state in which it ended. The tenants of a
  /// system database that came back are started.
  std::string restore(const Database& origin, const Database& into, const std::string& time, const std::string& set,
                      bool ignore_delta) const;
  /// backupd's plan of that; empty when backupd knows nothing of the database.
  json_spirit::Object plan(const Database& origin, const Database& into, const std::string& time,
                           const std::string& set, bool ignore_delta) const;
  /// Takes what a log backup has stored out of the pool.
  void lose(const Database& database, const std::string& backup_id) const;
  /// backupd's sets of a database, oldest first.
  /// `known` of them are left out.
  [[nodiscard]] std::vector<json_spirit::Object> sets(const Database& database, std::size_t known) const;
  /// Waits until no backup of a log waits to be recorded.
  void wait_until_recorded(const Database& database) const;
  /// Of what backupd knows.
  [[nodiscard]] Change_Watch watch() const;

 private:
  /// One of the host's systems, as backupd knows it.
  struct Known_System {
    std::unique_ptr<Hana_System> hana;
    std::string resource_uuid;
    std::set<std::string> used;  ///< databases of histories that go on
  };

  void install_product();
  void add_pools();
  void start_agent();
  Known_System& add_system(const Hana_System::Kind& kind = {});
  static Database add_tenant(Known_System& system, const std::string& wanted = {});
  Database add_alone(const Hana_System::Kind& kind);
  [[nodiscard]] const Known_System& system_of(const Database& database) const { return systems_.at(database.sid); }
  [[nodiscard]] const Hana_System& hana_of(const Database& database) const { return *system_of(database).hana; }
  [[nodiscard]] static std::string entry_of(const Hana_System& hana, const std::string& database);
  void enable_log_backup(const Known_System& system) const;
  json_spirit::Object ask(const std::string& method, const std::string& resource, const json_spirit::Object& body,
                          unsigned* status = nullptr) const;
  std::string run(const json_spirit::Object& definition) const;
  [[nodiscard]] std::string pool_uuid(const std::string& name) const;

  const Landscape landscape_;
  const std::time_t begin_;
  support::Scoped_Zone zone_;
  contract::Running_Server server_;
  std::map<std::string, Known_System> systems_;  ///< by SID
  unsigned installed_ = 0;                       ///< systems, ever
  std::string hana_time_;
  support::Standing_Clock clock_;
  std::string host_uuid_;
  std::unique_ptr<HTTP_Session> backupd_;  ///< as an operator
  std::unique_ptr<agentd::Daemon> agent_;
};

[[nodiscard]] std::string text_of(const json_spirit::Object& object, const std::string& key);
/// "2026-03-04 00:00:01", UTC.
[[nodiscard]] std::string utc_text(std::time_t moment);
[[nodiscard]] std::time_t utc_time(const std::string& text);

}  // namespace histories
