#pragma once

#include "hana/backint_catalog/backint_backup_file.h"
#include "hdbbackint/call.h"
#include "hdbbackint/restore/restore_progress.h"

namespace hdbbackint {

/// Restores one object: finds its record, reads it from its pool, checks it, gives it to HANA, answers. One thread;
/// used once.
class Object_Restorer {
 public:
  /// Adds to `progress` what HANA reads, which reading back for a check does not.
  Object_Restorer(const Call& call, const Request_Entry& entry, Restore_Progress& progress);

  /// Always answers, with "#RESTORED", "#NOTFOUND" or "#ERROR".
  void restore();

 private:
  enum class Search { found, not_found, failed };
  Search find();
  Search find_own();
  Search find_for_check();
  bool move();
  [[nodiscard]] const std::string& destination() const;

  const Call& call_;
  const Request_Entry& entry_;
  Restore_Progress& progress_;
  Stop_Source stop_;
  sap_hana::Backup_File_Info file_;
  std::string error_;
};

}  // namespace hdbbackint
