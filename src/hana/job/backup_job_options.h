#pragma once

#include "job/job_options.h"
#include "records/compression_method.h"

namespace sap_hana {

/// Options of a backup job. Format: docs/formats/backup-options.md.
class Backup_Job_Options : public Job_Options {
 public:
  static constexpr int default_compression_level = 1;

  /// Writes "compression" only when the method has a name, "compression_level" always. 0.
  int generate(yajl_gen generator) override;

  Compression_Method compression_ = COMPR_NONE;
  int compression_level_ = default_compression_level;
};

}  // namespace sap_hana
