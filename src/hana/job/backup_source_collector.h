#pragma once

#include <list>
#include <string>

class Default_Backup_Job_Source;

namespace sap_hana {

/// Turns the source entries of a backup job definition ("hana/HDB00", "hana/HDB00/TN1") into instance and database
/// names. One thread.
class Backup_Source_Collector {
 public:
  struct Database_Info {
    std::string instance;
    std::string database;   ///< empty when the entry names an instance only
    bool systemdb = false;  ///< the system database; on a system without tenants every named database is
  };
  using Databases = std::list<Database_Info>;

  explicit Backup_Source_Collector(const std::string& sid) : sid_(sid) {}

  /// Appends what the entries name, in their order. False, with a message, at the first entry of another kind than
  /// HANA; what came before it stays. A malformed HANA entry is reported and skipped.
  [[nodiscard]] bool collect(const Default_Backup_Job_Source& source);
  [[nodiscard]] const Databases& get() const { return sources_; }

 private:
  void collect_entry(const std::string& entry, bool multi_container);

  std::string sid_;
  Databases sources_;
};

}  // namespace sap_hana
