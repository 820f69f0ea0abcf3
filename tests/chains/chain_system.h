#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "agent/instance/instance_manager.h"
#include "agentd/modules/module.h"
#include "chains/chain_model.h"
#include "contract/backupd/running_server.h"
#include "job/job.h"
#include "json/value.h"
#include "support/scoped_zone.h"
#include "support/shifted_clock.h"

namespace chains {

inline constexpr const char* databases[] = {"SYSTEMDB", "TN1", "TN2"};

/// A data backup as HANA's catalog lists it. Times are POSIX seconds.
struct Catalog_Entry {
  std::string database;
  std::uint64_t id = 0;
  Kind kind = Kind::full;
  Destination destination = Destination::backint;
  bool successful = false;
  std::time_t start = 0;
  std::time_t end = 0;
};

/// A host with a stand-in HANA of three databases, the built module loaded as the agent loads it, hdbbackint, and a
/// backupd beside it: the product whole, but for the agent's process. Product and HANA live at the same moved time.
class Chain_System {
 public:
  Chain_System();
  ~Chain_System();

  /// From here on both HANA and the module live at this moment.
  void move_to(std::time_t moment) { clock_.move_to(moment); }
  /// Runs a definition that names all databases, to its end.
  Job_State run(Kind kind, const std::string& pool);
  /// SQL of a database, its answer as comma-separated values.
  std::string sql(const std::string& statement, const std::string& database = databases[0]) const;
  /// A verb of the stand-in's control program.
  void control(const std::vector<std::string>& words) const;

  /// HANA's data backups in the order of their ids.
  [[nodiscard]] std::vector<Catalog_Entry> catalog() const;
  /// backupd's backup sets, oldest first; `known` of them are left out.
  [[nodiscard]] std::vector<json_spirit::Object> sets(std::size_t known = 0) const;
  [[nodiscard]] std::string pool_uuid(const std::string& name) const;
  /// Where a documented path lies.
  [[nodiscard]] std::string real(const std::string& documented) const { return server_.root.real(documented); }
  [[nodiscard]] std::string content(const std::string& documented) const { return server_.root.read(documented); }
  [[nodiscard]] const std::string& resource_uuid() const { return resource_uuid_; }
  /// A definition that names all databases, read as the agent reads it. Not to outlive this object.
  [[nodiscard]] Job_Definition_Ptr read_definition(Kind kind, const std::string& pool) const;
  [[nodiscard]] std::chrono::seconds slept() const { return clock_.slept(); }

 private:
  void install_product();
  void install_hana();
  void register_with_backupd();
  [[nodiscard]] json_spirit::Object definition(Kind kind, const std::string& pool) const;
  json_spirit::Object post(const std::string& resource, const json_spirit::Object& body) const;

  // Summer time begins within the test: HANA writes local times into its logs.
  support::Scoped_Zone zone_{"Europe/Berlin"};
  contract::Running_Server server_;
  support::Shifted_Clock clock_;
  std::string host_uuid_;
  std::string operator_key_;
  std::string resource_uuid_;
  Instance_Manager registry_;
  std::unique_ptr<Scoped_Instance_Manager> registry_scope_;
  agentd::Modules modules_;
};

[[nodiscard]] const char* name_of(Kind kind);
[[nodiscard]] std::string text_of(const json_spirit::Object& object, const std::string& key);

}  // namespace chains
