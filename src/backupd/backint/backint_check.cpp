#include "backupd/backint/backint_check.h"

#include <limits>

#include "backupd/http/body_reader.h"
#include "records/compression_method.h"

namespace backupd {

namespace {

constexpr std::uint64_t largest_stored_number = std::numeric_limits<std::int64_t>::max();
constexpr std::size_t checksum_digits = 32;
constexpr const char* ondemand_log = "log";
constexpr const char* ondemand_catalog = "catalog";

Outcome refuse(std::string message) { return Outcome::refuse(Outcome::invalid, std::move(message)); }

/// The record's own writer says which keys there are.
Outcome check_keys(const json_spirit::Object& body, const json_spirit::Object& known, const char* what) {
  Body_Reader reader(body, what);
  for (const auto& [key, value] : known) reader.allow(key);
  return reader.finish();
}

bool is_segment(const std::string& text) { return is_relative_path(text) && text.find('/') == std::string::npos; }

bool is_checksum(const std::string& text) {
  return text.empty() ||
         (text.size() == checksum_digits && text.find_first_not_of("0123456789abcdef") == std::string::npos);
}

}  // namespace

bool is_known_compression(const std::string& name) {
  if (name.empty()) return true;
  for (int method = COMPR_NONE; method < COMPR_MAX; ++method) {
    const char* known = compression_value_to_name(static_cast<Compression_Method>(method));
    if (known != nullptr && name == known) return true;
  }
  return false;
}

bool is_relative_path(const std::string& path) {
  if (path.empty() || path.find('\0') != std::string::npos) return false;
  std::size_t begin = 0;
  while (begin <= path.size()) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    const std::string segment = path.substr(begin, end - begin);
    if (segment.empty() || segment == "." || segment == "..") return false;
    begin = end + 1;
  }
  return true;
}

Outcome read_backint_job(const json_spirit::Object& body, sap_hana::Backint_Backup_Job_Info& job) {
  std::string error;
  if (Outcome outcome = check_keys(body, job.to_json(), "the Backint job record"); !outcome.ok()) return outcome;
  if (!job.from_json(body, &error))
    return Outcome::refuse(Outcome::bad_request, "the Backint job record cannot be read: " + error);
  if (!is_uuid(job.uuid)) return refuse("the \"uuid\" of the Backint job record is no UUID: \"" + job.uuid + "\"");
  if (job.database_backup_id > largest_stored_number) return refuse("\"database_backup_id\" is out of range");
  if (!is_known_compression(job.compression))
    return refuse("the compression \"" + job.compression + "\" is not known; use none, auto, lzop or zstd");
  // These become names of directories on the pool.
  for (const std::string* name : {&job.host_uuid, &job.landscape_id, &job.database})
    if (!is_segment(*name))
      return refuse("\"" + *name +
                    "\" cannot be the name of a directory; \"host_uuid\", \"landscape_id\" and \"database\" "
                    "of a Backint job record must be");
  if (!is_uuid(job.pool_uuid)) return refuse("the \"pool_uuid\" of the Backint job record is no UUID");
  return {};
}

bool is_ondemand_type(const std::string& type) { return type == ondemand_log || type == ondemand_catalog; }

Outcome read_ondemand_job(const json_spirit::Object& body, sap_hana::Backint_Backup_Job_Info& job) {
  if (Outcome outcome = read_backint_job(body, job); !outcome.ok()) return outcome;
  if (!is_ondemand_type(job.type))
    return refuse("the \"type\" of a backup that HANA began by itself is \"log\" or \"catalog\", not \"" + job.type +
                  "\"");
  if (!job.job_act_id.empty())
    return refuse("a backup that HANA began by itself belongs to no run: leave \"job_act_id\" empty");
  if (job.sid.empty() || job.database_backup_id == 0)
    return refuse("the record of a backup that HANA began by itself needs its \"sid\" and its \"database_backup_id\"");
  return {};
}

Outcome read_backint_file(const json_spirit::Value& value, const std::string& job_uuid,
                          sap_hana::Backup_File_Info& file) {
  if (!value.is_object()) return Outcome::refuse(Outcome::bad_request, "an element of \"files\" is not an object");
  std::string error;
  const json_spirit::Object& body = value.get_obj();
  if (Outcome outcome = check_keys(body, file.to_json(), "the file record"); !outcome.ok()) return outcome;
  if (!file.from_json(body, &error))
    return Outcome::refuse(Outcome::bad_request, "a file record cannot be read: " + error);
  if (file.info_uuid.empty()) file.info_uuid = job_uuid;
  if (file.info_uuid != job_uuid)
    return refuse("a file record names the job " + file.info_uuid + ", but it was sent to " + job_uuid);
  if (file.filename.empty() || file.extern_backup_id.empty())
    return refuse("a file record lacks its \"filename\" or \"extern_backup_id\"");
  if (!is_relative_path(file.storage_path))
    return refuse("the \"storage_path\" of " + file.filename + " is not a relative path: \"" + file.storage_path +
                  "\"");
  if (file.size > largest_stored_number || file.storage_size > largest_stored_number ||
      file.database_backup_id > largest_stored_number)
    return refuse("a number of the file record " + file.filename + " is out of range");
  if (!is_checksum(file.checksum))
    return refuse("the \"checksum\" of " + file.filename + " is not 32 lower-case hexadecimal digits");
  if (!is_known_compression(file.compression))
    return refuse("the compression \"" + file.compression + "\" is not known; use none, auto, lzop or zstd");
  return {};
}

}  // namespace backupd
