#pragma once

#include "backupd/outcome.h"
#include "hana/backint_catalog/backint_backup_file.h"
#include "hana/backint_catalog/backint_job.h"
#include "json/value.h"

namespace backupd {

/// Reads a Backint job record as a request brought it: no unknown key, names that cannot leave their directory, a known
/// compression.
[[nodiscard]] Outcome read_backint_job(const json_spirit::Object& body, sap_hana::Backint_Backup_Job_Info& job);
/// The same for a backup that HANA began by itself: of a log or of the catalog, with its id and without a run.
[[nodiscard]] Outcome read_ondemand_job(const json_spirit::Object& body, sap_hana::Backint_Backup_Job_Info& job);
/// True for a type that such a record has.
[[nodiscard]] bool is_ondemand_type(const std::string& type);
/// Reads one file record of the job `job_uuid`.
[[nodiscard]] Outcome read_backint_file(const json_spirit::Value& value, const std::string& job_uuid,
                                        sap_hana::Backup_File_Info& file);
/// "", "none", "auto", "lzop", "zstd".
[[nodiscard]] bool is_known_compression(const std::string& name);
/// Segments between '/', none of them empty, "." or "..".
[[nodiscard]] bool is_relative_path(const std::string& path);

}  // namespace backupd
