#include "agentd/log_backup/log_backup_files.h"

#include <cerrno>
#include <cstring>

#include "json/value.h"
#include "net/http_string.h"
#include "platform/files.h"
#include "platform/product_paths.h"

namespace agentd {

namespace {

constexpr const char* prefix = "log_backup";
constexpr const char* state_folder = "hana";
constexpr char copy_mark = '.';
constexpr char separator = '_';
/// Separators before the database: those before SID and instance come first.
constexpr std::size_t database_part = 3;

/// The parts of the name, which are encoded so that none holds a separator.
std::string database_of(const std::string& name) {
  const std::string rest = name.substr(std::strlen(prefix));
  std::size_t begin = 0;
  for (std::size_t part = 0; part < database_part; ++part) {
    begin = rest.find(separator, begin);
    if (begin == std::string::npos) return {};
    ++begin;
  }
  return http_decode_string(rest.substr(begin, rest.find(copy_mark, begin) - begin));
}

void read_content(Log_Backup_File& file) {
  std::string text;
  json_spirit::Value value;
  if (!platform::read_file(file.path, text)) {
    file.problem = std::string("it cannot be read: ") + std::strerror(errno);
    return;
  }
  if (!json_spirit::load_json(text, value) || !value.is_object() ||
      !json_spirit::object_get(value.get_obj(), "job_definition_uuid", file.definition_id) ||
      file.definition_id.empty()) {
    file.definition_id.clear();
    file.problem = "it is damaged or no configuration of a log backup";
    return;
  }
  (void)json_spirit::object_get(value.get_obj(), "sid", file.sid);
  (void)json_spirit::object_get(value.get_obj(), "instance_name", file.instance_name);
}

}  // namespace

bool list_log_backup_files(std::vector<Log_Backup_File>& files, std::string& error) {
  const std::string directory = platform::product_paths::agent_state(state_folder);
  std::vector<std::string> names;
  files.clear();
  if (!platform::is_directory(directory.c_str())) return true;
  if (!platform::list_directory(directory, names)) {
    error = "the directory " + directory + " cannot be listed: " + std::strerror(errno);
    return false;
  }
  for (const std::string& name : names) {
    if (!name.starts_with(prefix)) continue;
    Log_Backup_File file;
    file.path = directory + "/" + name;
    file.live = name.find(copy_mark) == std::string::npos;
    file.database = database_of(name);
    read_content(file);
    files.push_back(std::move(file));
  }
  return true;
}

}  // namespace agentd
