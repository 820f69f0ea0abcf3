#pragma once

#include <cstdint>
#include <string>

#include "hana/backint_catalog/backint_job.h"
#include "records/compression_method.h"
#include "records/rate_limits.h"

namespace hdbbackint {

/// How one job's objects are moved: what its Backint job record says.
struct Job_Settings {
  sap_hana::Backint_Backup_Job_Info job;
  Compression_Method compression = COMPR_NONE;
  unsigned max_seconds_retry = 0;
  std::uint64_t resumption_buffer_size = 0;  ///< bytes
  Rate_Limits rate_limits;
  std::string rate_account;  ///< who shares the limits: the job itself unless said otherwise
};

/// Reads the settings out of a record. False with a reason when it lacks what is needed or is malformed.
[[nodiscard]] bool read_job_settings(const sap_hana::Backint_Backup_Job_Info& job, Job_Settings& settings,
                                     std::string& error);

/// The uuid of the job that an object belongs to: of the tool option, else what stands before "_databackup_" in the
/// object's name. Empty when neither is a uuid.
[[nodiscard]] std::string find_job_uuid(const std::string& tool_option, const std::string& object_name);

/// True for an object of a data backup, which HANA makes only when it is told to.
[[nodiscard]] bool is_data_backup(const std::string& object_name);

}  // namespace hdbbackint
