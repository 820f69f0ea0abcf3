#include "hdbbackint/backup/dataset_path.h"

#include "hdbbackint/stream/block_encoder.h"
#include "platform/files.h"
#include "records/dataset_directory.h"

namespace hdbbackint {

namespace {

/// Leaves room for the id and the suffix in a file name of 255 bytes. A name that is cut is still unique by its id.
constexpr std::size_t name_limit_bytes = 160;
std::string file_segment(const std::string& name) {
  return platform::encode_file_name(name).substr(0, name_limit_bytes);
}

}  // namespace

std::string dataset_directory(const sap_hana::Backint_Backup_Job_Info& job) {
  const std::string backup_id = job.database_backup_id == 0 ? job.uuid : std::to_string(job.database_backup_id);
  return dataset_segment(job.host_uuid) + "/" + dataset_segment(job.landscape_id) + "/" +
         dataset_segment(job.database) + "/" + dataset_segment(backup_id);
}

std::string object_path(const sap_hana::Backint_Backup_Job_Info& job, const std::string& file_name,
                        const std::string& ebid, Compression_Method method) {
  return dataset_directory(job) + "/" + file_segment(file_name) + "." + ebid + std::string(stored_suffix(method));
}

}  // namespace hdbbackint
