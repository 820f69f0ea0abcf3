#pragma once

#include <string>

#include "hana/backint_catalog/backint_job.h"
#include "records/compression_method.h"

namespace hdbbackint {

/// Directory of one backup on its pool: "<host uuid>/<landscape id>/<database>/<backup id>", each encoded so that it is
/// one safe segment. The backup id is HANA's, or the job's uuid while HANA has not said.
[[nodiscard]] std::string dataset_directory(const sap_hana::Backint_Backup_Job_Info& job);

/// Path of one object there: "<directory>/<name>.<ebid><suffix of the method>".
[[nodiscard]] std::string object_path(const sap_hana::Backint_Backup_Job_Info& job, const std::string& file_name,
                                      const std::string& ebid, Compression_Method method);

}  // namespace hdbbackint
