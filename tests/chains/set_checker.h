#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "chains/chain_model.h"
#include "chains/chain_system.h"

namespace chains {

/// Compares what HANA and backupd have recorded with the models of all databases, and fails the test where they differ.
class Set_Checker {
 public:
  explicit Set_Checker(const std::map<std::string, Chain_Model>& models) : models_(models) {}

  /// Everything that came since the last call.
  void check(const Chain_System& system);
  /// HANA's ids of the backups to bring the newest set of a database back, told by the records alone.
  [[nodiscard]] std::vector<std::uint64_t> recorded_chain(const std::string& database) const;
  [[nodiscard]] std::size_t sets() const { return known_sets_; }
  [[nodiscard]] std::size_t lifelines(const std::string& database) { return records_[database].lifelines.size(); }

 private:
  struct Recorded_Set {
    std::size_t place = 0;  ///< in the model's table
    std::uint64_t id = 0;   ///< HANA's
    Kind kind = Kind::full;
    std::string incarnation;
    std::uint64_t base = 0;  ///< HANA's id of the backup that the objects' names give as the base; 0: none
  };
  struct Records {
    std::vector<Catalog_Entry> catalog;            ///< as many as the model's table has
    std::map<std::size_t, std::string> uuids;      ///< of the sets, by place
    std::map<std::size_t, std::string> lifelines;  ///< by the place of the backup that began it
    std::vector<Recorded_Set> sets;
  };

  void check_catalog(const std::string& database);
  /// Gives the set's place in the model's table; none when it has no right to be there.
  std::optional<std::size_t> check_set(const std::string& database, const json_spirit::Object& set);
  void check_chains(const Backup& expected, const json_spirit::Object& set, std::size_t place, Records& records);
  void check_way_back(const std::string& database) const;

  const std::map<std::string, Chain_Model>& models_;
  std::map<std::string, Records> records_;
  std::size_t known_sets_ = 0;
};

}  // namespace chains
