#include "hdbbackint/backup/ondemand_configuration.h"

#include <algorithm>
#include <vector>

#include "hana/common/hana_paths.h"
#include "hana/common/ondemand_conf_path.h"
#include "hdbbackint/state_file.h"
#include "platform/files.h"

namespace hdbbackint {

namespace {

constexpr const char* log_type = "log";
constexpr char name_separator = '_';

constexpr State_File_Kind configuration_file{"the log backup configuration",
                                             "remove the log backup of this instance and set it up again"};
constexpr const char* remove_foreign = "remove it and set the log backup up again";

/// The files of a system, by what they are for.
struct Found_Files {
  std::vector<std::string> of_database;
  std::vector<std::string> of_instance;
};

bool list_files(const Object_Owner& owner, Found_Files& found, std::string& error) {
  const std::string directory = sap_hana::hana_state_directory();
  std::vector<std::string> names;
  if (!list_state_files(directory, names, error)) return false;
  // Each part of a name is encoded without the separator.
  const std::string of_system = std::string(sap_hana::ondemand_conf_prefix) + name_separator +
                                platform::encode_file_name(owner.sid) + name_separator;
  const std::string ending = name_separator + platform::encode_file_name(owner.database);
  for (const std::string& name : names) {
    if (!sap_hana::is_live_ondemand_conf(name) || !name.starts_with(of_system)) continue;
    const std::string rest = name.substr(of_system.size());
    const auto separators = std::count(rest.begin(), rest.end(), name_separator);
    if (separators == 0) found.of_instance.push_back(directory + '/' + name);
    if (separators == 1 && rest.ends_with(ending)) found.of_database.push_back(directory + '/' + name);
  }
  return true;
}

/// Why a file that can be read is not for this system and host; empty when it is.
std::string find_foreign_member(const json_spirit::Object& document, const std::string& path, const Object_Owner& owner,
                                bool of_database, const std::string& host_uuid) {
  const auto text = [&](const char* key) { return json_spirit::object_require<std::string>(document, key); };
  for (const char* key : {"job_definition_uuid", "pool_uuid", "location", "resource_uuid", "instance_name"})
    if (text(key).empty()) return std::string("has an empty \"") + key + "\"";
  if (text("type") != log_type) return "is of the type \"" + text("type") + "\", not \"" + log_type + "\"";
  if (text("sid") != owner.sid) return "is of the system \"" + text("sid") + "\", not " + owner.sid;
  std::string wanted;
  const std::string database = of_database ? owner.database : std::string();
  if (!sap_hana::ondemand_conf_path(owner.sid, text("instance_name"), database, wanted) || wanted != path)
    return "is of the instance \"" + text("instance_name") + "\", which its name does not say";
  if (text("host_uuid") != host_uuid) return "is of the host " + text("host_uuid") + ", this one is " + host_uuid;
  return {};
}

void take_members(const json_spirit::Object& document, Ondemand_Configuration& configuration) {
  const auto text = [&](const char* key) { return json_spirit::object_require<std::string>(document, key); };
  configuration.job_definition_uuid = text("job_definition_uuid");
  configuration.resource_uuid = text("resource_uuid");
  configuration.uid = text("uid");
  configuration.pool_uuid = text("pool_uuid");
  configuration.location = text("location");
  configuration.compression = text("compression");
  configuration.compression_level = json_spirit::object_require<int>(document, "compression_level");
  configuration.io_ctl = json_spirit::object_require<json_spirit::Object>(document, "io_ctl");
}

}  // namespace

bool find_object_owner(const std::string& object, Object_Owner& owner) {
  const std::string systems = std::string(sap_hana::sap_base_directory) + '/';
  if (!object.starts_with(systems)) return false;
  const std::string sid = object.substr(systems.size(), object.find('/', systems.size()) - systems.size());
  std::string pipes;
  if (!sap_hana::is_sid(sid) || !sap_hana::database_pipe_path(sid, {}, false, pipes)) return false;
  pipes += '/';
  if (!object.starts_with(pipes)) return false;
  const std::string rest = object.substr(pipes.size());
  const std::size_t slash = rest.find('/');
  if (rest.empty()) return false;
  if (slash == std::string::npos) {
    owner = {sid, sid};
    return true;
  }
  const std::string folder = rest.substr(0, slash);
  const std::string tenant_mark = sap_hana::database_folder({});
  const bool tenant = folder.starts_with(tenant_mark) && folder.size() > tenant_mark.size();
  if (rest.find('/', slash + 1) != std::string::npos || (!tenant && folder != sap_hana::system_database_name))
    return false;
  owner = {sid, tenant ? folder.substr(tenant_mark.size()) : folder};
  return true;
}

bool load_ondemand_configuration(const Object_Owner& owner, const std::string& host_uuid,
                                 Ondemand_Configuration& configuration, std::string& error) {
  Found_Files found;
  if (!list_files(owner, found, error)) return false;
  const bool of_database = !found.of_database.empty();
  const std::vector<std::string>& files = of_database ? found.of_database : found.of_instance;
  if (files.empty()) {
    error = "on-demand log backup is not set up for database " + owner.database + "@" + owner.sid + ": " +
            sap_hana::hana_state_directory() +
            " has no configuration file for it; set it up, or switch HANA's log "
            "backup through Backint off";
    return false;
  }
  if (files.size() > 1) {
    error = "the log backup configurations " + files[0] + " and " + files[1] + " are both for database " +
            owner.database + "@" + owner.sid + "; remove the one of the former instance";
    return false;
  }
  json_spirit::Object document;
  if (!configuration_file.read(files[0], document, error)) return false;
  try {
    const std::string foreign = find_foreign_member(document, files[0], owner, of_database, host_uuid);
    if (!foreign.empty()) {
      error = configuration_file.describe(files[0], foreign, remove_foreign);
      return false;
    }
    Ondemand_Configuration read;
    read.path = files[0];
    take_members(document, read);
    configuration = std::move(read);
    return true;
  } catch (const json_spirit::Error& wrong) {
    error = configuration_file.describe(files[0], std::string("is not one of ours: ") + wrong.what(), remove_foreign);
    return false;
  }
}

}  // namespace hdbbackint
