#pragma once

#include <string>
#include <vector>

#include "job/job_source.h"

/// What a backup job saves: entries of a resource, each a path whose first segment names the module, such as
/// "hana/HDB00/TN1". Format: docs/formats/backup-source.md.
class Default_Backup_Job_Source : public Job_Source {
 public:
  using Entries = std::vector<std::string>;

  [[nodiscard]] const Entries& entries() const { return entries_; }
  void add_entry(const std::string& entry) { entries_.push_back(entry); }

  /// "id" always, "name" only if it is not empty, "entries" always.
  int generate(yajl_gen generator) const override;

 private:
  Entries entries_;
};
