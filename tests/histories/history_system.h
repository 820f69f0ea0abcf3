#pragma once

#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "agent/backupd_client/http_session.h"
#include "agentd/daemon.h"
#include "contract/backupd/running_server.h"
#include "histories/change_watch.h"
#include "json/value.h"
#include "support/scoped_zone.h"
#include "support/standing_clock.h"

namespace histories {

/// A host with a stand-in HANA, hdbbackint, a backupd, and the host agent in the test's process, which carries the
/// built module. All but backupd live at a time that moves only when a history moves it. Every history gets a tenant
/// of its own, so that one system serves many.
class History_System {
 public:
  /// In the past, since backupd keeps the world's time and refuses what lies ahead of it. The zone matters, since HANA
  /// writes local times into its logs.
  History_System(const char* zone, std::time_t begin);
  ~History_System();
  History_System(const History_System&) = delete;
  History_System& operator=(const History_System&) = delete;

  /// When so much time passes, HANA saves its logs.
  static constexpr std::time_t log_timeout = 3600;

  /// Makes an empty tenant and starts it; its name.
  std::string add_tenant();
  /// Ends the tenant's work. Its backups stay.
  void retire(const std::string& tenant) const;

  [[nodiscard]] std::time_t begin() const { return begin_; }
  [[nodiscard]] std::time_t now() const { return platform::Clock::current().wall_seconds(); }
  void move_to(std::time_t moment) { clock_.move_to(moment); }

  /// SQL in a database, its answer as comma-separated values without quotes; throws when HANA refuses.
  std::string sql(const std::string& statement, const std::string& database) const;
  /// Runs a data backup ("full", "incremental", "differential") to a pool; the state in which it ended.
  std::string back_up(const std::string& tenant, const std::string& kind, const std::string& pool) const;
  /// Runs a restore into a tenant, to a time or, without one, to a set; the state in which it ended.
  std::string restore(const std::string& tenant, const std::string& into, const std::string& time,
                      const std::string& set, bool ignore_delta) const;
  /// backupd's plan of that; empty when backupd knows nothing of the tenant.
  json_spirit::Object plan(const std::string& tenant, const std::string& into, const std::string& time,
                           const std::string& set, bool ignore_delta) const;
  /// Takes what a log backup has stored out of the pool.
  void lose(const std::string& tenant, const std::string& backup_id) const;
  /// backupd's sets of a tenant, oldest first.
  /// `known` of them are left out.
  [[nodiscard]] std::vector<json_spirit::Object> sets(const std::string& tenant, std::size_t known) const;
  /// Waits until no backup of a log waits to be recorded.
  void wait_until_recorded(const std::string& tenant) const;
  /// Of what backupd knows.
  [[nodiscard]] Change_Watch watch() const;

 private:
  void install_hana();
  void install_product();
  void register_with_backupd();
  void start_agent();
  void enable_log_backup() const;
  json_spirit::Object ask(const std::string& method, const std::string& resource, const json_spirit::Object& body,
                          unsigned* status = nullptr) const;
  std::string run(const json_spirit::Object& definition) const;
  [[nodiscard]] std::string pool_uuid(const std::string& name) const;

  const std::time_t begin_;
  support::Scoped_Zone zone_;
  contract::Running_Server server_;
  support::Standing_Clock clock_;
  std::string host_uuid_;
  std::unique_ptr<HTTP_Session> backupd_;  ///< as an operator
  std::string resource_uuid_;
  std::unique_ptr<agentd::Daemon> agent_;
  int tenants_ = 0;
};

[[nodiscard]] std::string text_of(const json_spirit::Object& object, const std::string& key);
/// "2026-03-04 00:00:01", UTC.
[[nodiscard]] std::string utc_text(std::time_t moment);
[[nodiscard]] std::time_t utc_time(const std::string& text);

}  // namespace histories
