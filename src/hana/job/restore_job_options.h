#pragma once

#include "job/job_options.h"

namespace sap_hana {

/// Options of a restore job. Format: docs/formats/restore-options.md.
class Restore_Job_Options : public Job_Options {
 public:
  /// Writes an empty object: the setting is not kept when options are written out. 0.
  int generate(yajl_gen generator) override;

  /// Recover from full backups and logs only.
  void ignore_delta(bool value) { ignore_delta_ = value; }
  [[nodiscard]] bool ignore_delta() const { return ignore_delta_; }

 private:
  bool ignore_delta_ = false;
};

}  // namespace sap_hana
