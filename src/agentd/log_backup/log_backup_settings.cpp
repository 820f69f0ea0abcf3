#include "agentd/log_backup/log_backup_settings.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <map>

#include "agentd/instances/ini_section.h"
#include "platform/files.h"

namespace agentd {

namespace {

constexpr const char* log_mode_key = "log_mode";
constexpr const char* auto_key = "enable_auto_log_backup";
constexpr const char* log_key = "log_backup_using_backint";
constexpr const char* catalog_key = "catalog_backup_using_backint";
constexpr const char* mode_normal = "normal";

bool is_true(const std::string& text) {
  constexpr std::array words{"true", "yes", "on", "1"};
  return std::any_of(words.begin(), words.end(),
                     [&](const char* word) { return ::strcasecmp(word, text.c_str()) == 0; });
}

using Section = std::map<std::string, std::string>;

void take_flag(const Section& section, const char* key, bool& flag) {
  if (const auto found = section.find(key); found != section.end()) flag = is_true(found->second);
}

void take_layer(const std::string& text, Log_Backup_Settings& settings) {
  const Section persistence = read_ini_section(text, "persistence");
  const Section backup = read_ini_section(text, "backup");
  if (const auto mode = persistence.find(log_mode_key); mode != persistence.end()) settings.log_mode = mode->second;
  take_flag(persistence, auto_key, settings.auto_log_backup);
  take_flag(backup, log_key, settings.log_using_backint);
  take_flag(backup, catalog_key, settings.catalog_using_backint);
}

/// A layer that is not there sets nothing.
bool read_layer(const std::string& path, Log_Backup_Settings& settings, std::string& error) {
  std::string text;
  if (platform::read_file(path, text)) {
    take_layer(text, settings);
    return true;
  }
  if (errno == ENOENT) return true;
  error = path + " cannot be read: " + std::strerror(errno);
  return false;
}

}  // namespace

bool Log_Backup_Settings::on() const { return lacks().empty(); }

std::string Log_Backup_Settings::lacks() const {
  if (log_mode != mode_normal) return "log_mode is " + log_mode;
  if (!auto_log_backup) return std::string(auto_key) + " is no";
  if (!log_using_backint) return std::string(log_key) + " is false";
  return catalog_using_backint ? "" : std::string(catalog_key) + " is false";
}

bool read_log_backup_settings(const std::string& sid, const std::string& database, Log_Backup_Settings& settings,
                              std::string& error) {
  const std::string directory = "/usr/sap/" + sid + "/SYS/global/hdb/custom/config";
  settings = {};
  return read_layer(directory + "/global.ini", settings, error) &&
         (database.empty() || read_layer(directory + "/DB_" + database + "/global.ini", settings, error));
}

json_spirit::Object to_json(const Log_Backup_Settings& settings) {
  return {{log_mode_key, settings.log_mode},
          {auto_key, settings.auto_log_backup},
          {log_key, settings.log_using_backint},
          {catalog_key, settings.catalog_using_backint}};
}

}  // namespace agentd
