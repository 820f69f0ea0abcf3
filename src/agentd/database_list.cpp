#include "agentd/database_list.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>

#include "platform/files.h"

namespace agentd {

namespace {

constexpr const char* system_database = "SYSTEMDB";
constexpr std::size_t fields_of_a_row = 9;
constexpr std::size_t name_field = 0;
constexpr std::size_t active_field = 8;
constexpr std::size_t sid_length = 3;

std::vector<std::string> split(const std::string& line) {
  std::vector<std::string> fields;
  std::stringstream stream(line);
  for (std::string field; std::getline(stream, field, ':');) fields.push_back(std::move(field));
  return fields;
}

}  // namespace

bool is_sid(const std::string& sid) {
  return sid.size() == sid_length &&
         std::all_of(sid.begin(), sid.end(), [](char c) { return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); });
}

std::vector<Listed_Database> parse_database_list(const std::string& text) {
  std::vector<Listed_Database> databases;
  std::stringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty() || line.front() == '#') continue;
    const std::vector<std::string> fields = split(line);
    if (fields.size() < fields_of_a_row || fields[name_field].empty()) continue;
    databases.push_back({fields[name_field], fields[active_field] == "yes", "tenant database"});
  }
  return databases;
}

bool list_databases(const Instance& instance, bool running, std::vector<Listed_Database>& databases,
                    std::string& error) {
  std::string sid;
  bool multi_container = false;
  if (!json_spirit::object_get(instance.options, "sid", sid) || !is_sid(sid)) {
    error = "the record of instance " + instance.name + " has no system id; run discover again";
    return false;
  }
  if (!json_spirit::object_get(instance.options, "multi_container", multi_container) || !multi_container) {
    databases = {{sid, running, "database of a system without tenants"}};
    return true;
  }
  const std::string path = "/usr/sap/" + sid + "/SYS/global/hdb/mdc/databases.lst";
  std::string text;
  if (!platform::read_file(path, text)) {
    error = "the list of databases " + path + " cannot be read: " + std::strerror(errno) +
            "; name the database yourself, or let the agent run as a user who may read it";
    return false;
  }
  databases = {{system_database, running, "system database"}};
  for (Listed_Database& tenant : parse_database_list(text))
    if (tenant.name != system_database) databases.push_back(std::move(tenant));
  return true;
}

}  // namespace agentd
