#pragma once

#include <string>
#include <vector>

#include "job/job_source.h"

namespace sap_hana {

/// What a restore job restores, database by database, in document order. Format: docs/formats/restore-source.md.
class Restore_Job_Source : public Job_Source {
 public:
  /// The database in the system that was backed up.
  struct Origin_Info {
    std::string database;
    std::string sid;
  };
  /// What it is restored as.
  struct Target_Info {
    bool systemdb = false;  ///< set by the restore, never by the document
    std::string database;
    std::string timepoint;
    std::string lifeline;
  };
  struct Entry_Item {
    std::string catalog_uuid;  ///< the set to restore from; may be empty when there is a time point
    Origin_Info origin;
    Target_Info target;

    /// Clears catalog_uuid, origin.database and target.database and nothing else: the others carry over.
    void reset();
  };
  using Entry_List = std::vector<Entry_Item>;

  int generate(yajl_gen generator) const override;

  [[nodiscard]] const Entry_List& get_entries() const { return entries_; }
  void add_entry_item(const Entry_Item& item) { entries_.push_back(item); }

 private:
  Entry_List entries_;
};

}  // namespace sap_hana
