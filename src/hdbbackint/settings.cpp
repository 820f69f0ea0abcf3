#include "hdbbackint/settings.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "hdbbackint/protocol/tool_option.h"
#include "scrt/uuid.h"

namespace hdbbackint {

namespace {

constexpr const char* tool_option_key = "job_uuid";
constexpr std::string_view data_backup_mark = "_databackup_";

std::string last_segment(const std::string& path) { return path.substr(path.rfind('/') + 1); }

/// A setting that is there but is no number of that range is a slip that must not pass for "0".
bool read_number(const json_spirit::Object& io_ctl, const char* key, std::uint64_t& number, std::string& error) {
  const json_spirit::Value* value = io_ctl.find(key);
  if (value == nullptr) return true;
  try {
    number = value->get_uint64();
  } catch (const json_spirit::Error& wrong) {
    error = std::string("io_ctl: key '") + key + "': " + wrong.what();
    return false;
  }
  return true;
}

bool is_uuid(const std::string& text) {
  unsigned char binary[uuid_bytes];
  return uuid_string_to_binary(text.c_str(), binary);
}

}  // namespace

bool read_job_settings(const sap_hana::Backint_Backup_Job_Info& job, Job_Settings& settings, std::string& error) {
  const std::pair<const std::string&, const char*> needed[] = {{job.location, "storage pool"},
                                                               {job.host_uuid, "host"},
                                                               {job.landscape_id, "landscape"},
                                                               {job.database, "database"}};
  for (const auto& [value, what] : needed) {
    if (!value.empty()) continue;
    error = "the Backint job record " + job.uuid + " names no " + what;
    return false;
  }
  settings.job = job;
  settings.rate_account = job.uuid;
  settings.compression =
      job.compression.empty() ? COMPR_NONE : compression_name_to_value(job.compression.data(), job.compression.size());
  json_spirit::Object io_ctl;
  json_spirit::object_get(job.extended_attrs, "io_ctl", io_ctl);
  std::uint64_t seconds = 0;
  const bool sound = read_number(io_ctl, "max_seconds_retry", seconds, error) &&
                     read_number(io_ctl, "resumption_buffer_size", settings.resumption_buffer_size, error) &&
                     settings.rate_limits.from_json_in_object(io_ctl, &error);
  if (!sound) {
    error = "the Backint job record " + job.uuid + " is malformed: " + error;
    return false;
  }
  settings.max_seconds_retry = static_cast<unsigned>(std::min<std::uint64_t>(seconds, std::numeric_limits<int>::max()));
  return true;
}

std::string find_job_uuid(const std::string& tool_option, const std::string& object_name) {
  const std::string named = tool_option_value(tool_option, tool_option_key);
  if (is_uuid(named)) return named;
  const std::string file = last_segment(object_name);
  const std::string prefix = file.substr(0, std::min(file.find(data_backup_mark), file.size()));
  return prefix.size() < file.size() && is_uuid(prefix) ? prefix : std::string();
}

bool is_data_backup(const std::string& object_name) {
  return last_segment(object_name).find(data_backup_mark) != std::string::npos;
}

}  // namespace hdbbackint
