#pragma once

#include <string>

#include "hana/backint_catalog/backint_job.h"
#include "records/compression_method.h"

namespace hdbbackint {

/// Directory of one backup on its pool: "<host uuid>/<landscape id>/<database>/<backup id>", each one safe segment
/// (records/dataset_directory.h). The backup id is HANA's, or the job's uuid while HANA has not said. The record names
/// all of them, as read_job_settings has made sure.
[[nodiscard]] std::string dataset_directory(const sap_hana::Backint_Backup_Job_Info& job);

/// Path of one object there: "<directory>/<name>.<ebid><suffix of the method>".
[[nodiscard]] std::string object_path(const sap_hana::Backint_Backup_Job_Info& job, const std::string& file_name,
                                      const std::string& ebid, Compression_Method method);

}  // namespace hdbbackint
