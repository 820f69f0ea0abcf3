#pragma once

#include <string>

#include "hana/backint_catalog/backint_backup_file.h"
#include "hdbbackint/call.h"
#include "records/rate_limits.h"

namespace hdbbackint {

/// How one object is brought back: what the restore that goes on says, else what the job said that saved the object.
struct Restore_Control {
  unsigned max_seconds_retry = 0;  ///< one attempt when nobody says
  Rate_Limits rate_limits;         ///< source: from the pool, as it is stored; destination: to HANA
  std::string rate_account;        ///< shared by all processes of the restore; empty without limits

  [[nodiscard]] static Restore_Control of(const Call& call, const std::string& object,
                                          const sap_hana::Backup_File_Info& file);
};

}  // namespace hdbbackint
