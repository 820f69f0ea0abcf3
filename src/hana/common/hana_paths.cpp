#include "hana/common/hana_paths.h"

#include <cstdio>

#include "platform/files.h"
#include "platform/log.h"
#include "platform/product_paths.h"
#include "scrt/path_t.h"

namespace sap_hana {

namespace {

constexpr std::string_view instance_prefix = "HDB";
constexpr std::size_t sid_length = 3;
constexpr std::size_t instance_name_length = 5;
constexpr int decimal = 10;

bool is_capital(char c) { return c >= 'A' && c <= 'Z'; }
bool is_digit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

bool is_sid(std::string_view text) {
  if (text.size() != sid_length || !is_capital(text[0])) return false;
  for (const char c : text.substr(1))
    if (!is_capital(c) && !is_digit(c)) return false;
  return true;
}

bool is_instance_name(std::string_view text) {
  return text.size() == instance_name_length && text.starts_with(instance_prefix) && is_digit(text[3]) &&
         is_digit(text[4]);
}

std::string instance_name_of(ACE_UINT16 number) {
  // Of a number that no instance has, too: its name is then refused, and never that of another instance.
  char text[sizeof "HDB65535"];
  std::snprintf(text, sizeof text, "HDB%02u", static_cast<unsigned>(number));
  return text;
}

bool instance_number_of(std::string_view instance_name, ACE_UINT16& number) {
  if (!is_instance_name(instance_name)) return false;
  number = static_cast<ACE_UINT16>((instance_name[3] - '0') * decimal + (instance_name[4] - '0'));
  return true;
}

std::string generate_instance_manager_name(std::string_view sid, std::string_view instance_name) {
  std::string name(sid);
  name += '_';
  name += instance_name;
  return name;
}

std::string system_user(std::string_view sid) {
  std::string user;
  for (const char c : sid) user += is_capital(c) ? static_cast<char>(c - 'A' + 'a') : c;
  return user + "adm";
}

std::string system_directory(std::string_view sid) { return scrt::join_path(sap_base_directory, sid); }

std::string instance_directory(std::string_view sid, std::string_view instance_name) {
  return scrt::join_path(sap_base_directory, sid, instance_name);
}

std::string executable_directory(std::string_view sid, std::string_view instance_name) {
  return scrt::join_path(sap_base_directory, sid, instance_name, "exe");
}

std::string host_directory(std::string_view sid, std::string_view instance_name, std::string_view host) {
  return scrt::join_path(sap_base_directory, sid, instance_name, host);
}

std::string trace_directory(std::string_view sid, std::string_view instance_name, std::string_view host) {
  return scrt::join_path(sap_base_directory, sid, instance_name, host, "trace");
}

std::string instance_manifest(std::string_view sid, std::string_view instance_name) {
  return scrt::join_path(sap_base_directory, sid, instance_name, "exe/manifest");
}

std::string system_manifest(std::string_view sid) {
  return scrt::join_path(sap_base_directory, sid, "SYS/exe/hdb/manifest");
}

std::string profile_directory(std::string_view sid) { return scrt::join_path(sap_base_directory, sid, "SYS/profile"); }

std::string system_configuration(std::string_view sid, std::string_view file) {
  return scrt::join_path(sap_base_directory, sid, "SYS/global/hdb/custom/config", file);
}

std::string system_user_home(std::string_view sid) { return scrt::join_path(sap_base_directory, sid, "home"); }

std::string database_folder(std::string_view database) { return "DB_" + std::string(database); }

bool database_pipe_path(const std::string& sid, const std::string& database, bool multi_container, std::string& path) {
  const bool segment = database.find('/') == std::string::npos && database.find('\0') == std::string::npos;
  if (!is_sid(sid) || !segment || (multi_container && database.empty())) {
    D3_ERROR("No pipe directory for database '%C' of HANA system '%C': the names cannot be part of a path\n",
             platform::cut_for_log(database).c_str(), platform::cut_for_log(sid).c_str());
    return false;
  }
  const std::string base = scrt::join_path(sap_base_directory, sid, "SYS/global/hdb/backint");
  if (!multi_container)
    path = base;
  else
    path = scrt::join_path(base, database == system_database_name ? database : database_folder(database));
  return true;
}

std::string database_restore_lock(std::string_view sid, std::string_view database) {
  return platform::product_paths::agent_state(scrt::join_path(
      "lock", "restore_" + platform::encode_file_name(sid) + "_" + platform::encode_file_name(database)));
}

}  // namespace sap_hana
