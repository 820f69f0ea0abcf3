#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host.h"
#include "root_fixture.h"
#include "server.h"

namespace system_tests {

/// One backup server and several hosts, each below a root of its own, with a HANA system that spans them. In the end
/// all is stopped, and a process that is left is a failure.
class Cluster_Fixture : public Root_Fixture {
 protected:
  using Hana = Host::Hana;

  Cluster_Fixture();
  void TearDown() override;

  /// The hosts hana01 and hana02 as two sites of a replicated system, hana01 the primary; all runs and is registered.
  void start_pair(const std::string& mode, const Hana& hana);
  void start_pair(const std::string& mode = "sync") { start_pair(mode, Hana()); }
  /// A scale-out system over hana01 to hana0<count>, hana01 its master; all runs and is registered. When hana01 goes,
  /// hana02 takes over; the others do not before their faults are taken away.
  void start_scale_out(int count, const Hana& hana);
  void start_scale_out(int count) { start_scale_out(count, Hana()); }

  /// hana01 and hana02 are systems of their own with the same SID and tenants, as a system and its copy; both run and
  /// are registered.
  void start_namesakes();

  /// "hana01" and so on.
  [[nodiscard]] Host& host(const std::string& name) const;
  [[nodiscard]] Server& server() { return server_; }
  [[nodiscard]] const Server& server() const { return server_; }
  /// Gives the host's agent the account of the stand-in; the instance must take statements.
  void log_on(const Host& host) const;
  /// Waits until the system database takes statements on that host.
  [[nodiscard]] static bool serves(const Host& host);

  /// The runs that a backup needed, from the declined ones to the last, as the command's answer names it.
  [[nodiscard]] std::vector<json_spirit::Object> tries(const std::string& last_run) const;
  /// "hana02 skipped, hana01 completed".
  [[nodiscard]] std::string story(const std::string& last_run) const;
  /// The lines of a run's log, one below the other.
  [[nodiscard]] std::string log_of(const std::string& run) const;

  static constexpr const char* instance = "HDB_HDB00";
  static constexpr const char* tenant = "HDB_HDB00/TN1";

 private:
  Host& add_host(const std::string& name);
  void start_agents();

  Server server_;
  std::vector<std::unique_ptr<Host>> hosts_;
};

}  // namespace system_tests
