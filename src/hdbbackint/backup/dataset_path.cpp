#include "hdbbackint/backup/dataset_path.h"

#include "hdbbackint/stream/block_encoder.h"
#include "platform/files.h"

namespace hdbbackint {

namespace {

/// Leaves room for the id and the suffix in a file name of 255 bytes. A name that is cut is still unique by its id.
constexpr std::size_t name_limit_bytes = 160;
/// Stands for an id that is empty: no encoded name looks like it.
constexpr const char* empty_segment = "_";

std::string segment(const std::string& text) {
  return text.empty() ? empty_segment : platform::encode_file_name(text).substr(0, name_limit_bytes);
}

}  // namespace

std::string dataset_directory(const sap_hana::Backint_Backup_Job_Info& job) {
  const std::string backup_id = job.database_backup_id == 0 ? job.uuid : std::to_string(job.database_backup_id);
  return segment(job.host_uuid) + "/" + segment(job.landscape_id) + "/" + segment(job.database) + "/" +
         segment(backup_id);
}

std::string object_path(const sap_hana::Backint_Backup_Job_Info& job, const std::string& file_name,
                        const std::string& ebid, Compression_Method method) {
  return dataset_directory(job) + "/" + segment(file_name) + "." + ebid + std::string(stored_suffix(method));
}

}  // namespace hdbbackint
