#include "server/configuration.h"

#include <filesystem>

#include "base/files.h"
#include "base/ini.h"
#include "base/text.h"

namespace standin {

namespace {

struct Change {
  std::string section, key, value;
};

bool read_pair(Token_Reader& reader, Change& change) {
  return reader.accept("(") && reader.accept_text(change.section) && reader.accept(",") &&
         reader.accept_text(change.key) && reader.accept(")");
}

bool supported(const Change& change) {
  struct Rule {
    const char *key, *values;
  };
  constexpr Rule rules[] = {{"log_mode", "normal,overwrite,legacy"},
                            {"enable_auto_log_backup", "yes,no"},
                            {"log_backup_using_backint", "true,false"},
                            {"catalog_backup_using_backint", "true,false"}};
  for (const char* key : {"log_backup_timeout_s", "log_segment_size_mb"})
    if (change.key == key) return parse_number(change.value).value_or(-1) >= 0;
  for (const Rule& rule : rules) {
    if (change.key != rule.key) continue;
    for (const std::string& value : split(rule.values, ','))
      if (lower(change.value) == value) return true;
    return false;
  }
  return true;
}

}  // namespace

std::string setting_of(const Layout& layout, const std::string& database, const char* section, const char* key,
                       const std::string& otherwise) {
  const std::string folder = layout.database_folder(database);
  const std::string of_system = Ini::load(layout.configuration("global.ini")).get(section, key, otherwise);
  if (folder.empty() || database == system_database) return of_system;
  return Ini::load(layout.configuration(folder + "/global.ini")).get(section, key, of_system);
}

bool is_true(const std::string& value) { return lower(value) == "true" || lower(value) == "yes" || value == "1"; }

std::optional<Sql_Error> alter_configuration(System_State& state, const std::string& database, Token_Reader& reader) {
  std::string file, layer, target;
  if (!reader.accept("(") || !reader.accept_text(file) || !reader.accept(",") || !reader.accept_text(layer))
    return reader.error();
  if (reader.accept(",") && !reader.accept_text(target)) return reader.error();
  if (!reader.accept(")")) return reader.error();
  const bool set = reader.accept("SET");
  if (!set && !reader.accept("UNSET")) return reader.error();
  std::vector<Change> changes;
  do {
    Change change;
    if (!read_pair(reader, change)) return reader.error();
    if (set && (!reader.accept("=") || !reader.accept_text(change.value))) return reader.error();
    changes.push_back(change);
  } while (reader.accept(","));
  reader.accept_words({"WITH", "RECONFIGURE"});
  std::string comment;
  if (reader.accept("COMMENT") && !reader.accept_text(comment)) return reader.error();
  if (!reader.at_end()) return reader.error();
  for (const Change& change : changes)
    if (set && !supported(change))
      return Sql_Error{2048,
                       "column store error: unsupported value '" + change.value + "' for parameter " + change.key};

  const Layout& layout = state.layout();
  std::string folder;
  layer = upper(layer);
  if (layer == "DATABASE" || (layer == "SYSTEM" && layout.multi() && database != system_database))
    folder = layout.database_folder(layer == "DATABASE" && !target.empty() ? target : database) + "/";
  else if (layer != "SYSTEM")
    return Sql_Error{7, "feature not supported: configuration layer " + layer};
  if (file.find('/') != std::string::npos || !file.ends_with(".ini"))
    return Sql_Error{2, "general error: unknown configuration file " + file};
  const std::string path = layout.configuration(folder + file);
  make_directories(std::filesystem::path(path).parent_path().string());
  Ini ini = Ini::load(path);
  for (const Change& change : changes)
    if (set)
      ini.set(change.section, change.key, change.value);
    else
      ini.unset(change.section, change.key);
  if (!ini.save(path, file, "hdbindexserver"))
    return Sql_Error{2, "general error: configuration file could not be written"};
  return std::nullopt;
}

}  // namespace standin
