#include "hana/common/restore_conf_path.h"

#include <algorithm>
#include <initializer_list>

#include "hana/common/ondemand_conf_path.h"
#include "platform/files.h"
#include "platform/log.h"
#include "scrt/path_t.h"

namespace sap_hana {

namespace {

constexpr const char* catalog_folder = "catalog";
constexpr const char* catalog_start = "catalog";
constexpr const char* restore_start = "restore";
constexpr const char* ending = ".json";

/// "<start>_<part>_<part>": an encoded part holds no "_".
std::string joined(const char* start, std::initializer_list<std::string_view> parts) {
  std::string name = start;
  for (const std::string_view part : parts) name += '_' + platform::encode_file_name(part);
  return name;
}

bool path_of(const char* start, std::initializer_list<std::string_view> parts, std::string& path) {
  if (std::any_of(parts.begin(), parts.end(), [](std::string_view part) { return part.empty(); })) {
    D3_ERROR("No configuration file of a restore without the names of systems and databases\n");
    return false;
  }
  path = scrt::join_path(restore_catalog_directory(), joined(start, parts) + ending);
  return true;
}

}  // namespace

std::string restore_catalog_directory() { return scrt::join_path(hana_state_directory(), catalog_folder); }

std::string catalog_conf_prefix(std::string_view origin_sid, std::string_view origin_database) {
  return joined(catalog_start, {origin_sid, origin_database}) + '_';
}

bool catalog_conf_file_name(const std::string& origin_sid, const std::string& origin_database,
                            const std::string& target_sid, const std::string& target_database, std::string& path) {
  return path_of(catalog_start, {origin_sid, origin_database, target_sid, target_database}, path);
}

bool restore_ext_conf_file(const std::string& target_sid, const std::string& target_database, std::string& path) {
  return path_of(restore_start, {target_sid, target_database}, path);
}

}  // namespace sap_hana
