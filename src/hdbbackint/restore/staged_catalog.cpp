#include "hdbbackint/restore/staged_catalog.h"

#include <sys/stat.h>

#include <algorithm>
#include <limits>
#include <tuple>
#include <utility>
#include <vector>

#include "hana/common/restore_conf_path.h"
#include "hdbbackint/backup/ondemand_configuration.h"
#include "hdbbackint/state_file.h"
#include "platform/file_root.h"
#include "platform/files.h"
#include "scrt/path_t.h"

namespace hdbbackint {

namespace {

constexpr const char* catalog_object = "log_backup_0_0_0_0";
constexpr const char* file_ending = ".json";
constexpr const char* io_ctl_key = "io_ctl";

constexpr State_File_Kind restore_file{"the restore's file", "remove it and begin the restore again"};

using Modified = std::tuple<time_t, long>;

bool modified_at(const std::string& path, Modified& time) {
  struct stat status {};
  if (::stat(platform::File_Root::current().real(path).c_str(), &status) != 0) return false;
  time = {status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
  return true;
}

/// The files of an origin, newest first. False with an error when they cannot be listed.
bool list_files(const Object_Owner& origin, std::vector<std::string>& paths, std::string& error) {
  const std::string directory = sap_hana::restore_catalog_directory();
  std::vector<std::string> names;
  if (!list_state_files(directory, names, error)) return false;
  std::vector<std::pair<Modified, std::string>> files;
  for (const std::string& name : names) {
    if (!name.starts_with(sap_hana::catalog_conf_prefix(origin.sid, origin.database)) || !name.ends_with(file_ending))
      continue;
    const std::string path = scrt::join_path(directory, name);
    Modified time;
    if (modified_at(path, time)) files.emplace_back(time, path);
  }
  std::sort(files.rbegin(), files.rend());
  for (auto& [time, path] : files) paths.push_back(std::move(path));
  return true;
}

/// How the restore into that database does its input and output, from the file of its own.
json_spirit::Object io_ctl_of(const User_Id& target) {
  std::string path;
  json_spirit::Object attributes;
  json_spirit::Object io_ctl;
  std::string error;
  if (!sap_hana::restore_ext_conf_file(target.sid, target.database, path) || !platform::is_regular_file(path.c_str()))
    return io_ctl;
  if (!restore_file.read(path, attributes, error)) throw json_spirit::Error(error);
  json_spirit::object_get(attributes, io_ctl_key, io_ctl);
  return io_ctl;
}

/// Throws when a member is missing.
Staged_Catalog take_members(const json_spirit::Object& document, const std::string& path) {
  const auto text = [&](const char* key) { return json_spirit::object_require<std::string>(document, key); };
  Staged_Catalog catalog;
  catalog.path = path;
  catalog.location = text("location");
  catalog.storage_path = text("filename");
  catalog.source_type = text("source_type");
  catalog.extern_backup_id = text("extern_backup_id");
  catalog.pool_uuid = text("pool_uuid");
  catalog.origin = {text("origin_sid"), text("origin_database")};
  catalog.target = {text("target_sid"), text("target_database")};
  std::string named;
  if (!sap_hana::catalog_conf_file_name(catalog.origin.sid, catalog.origin.database, catalog.target.sid,
                                        catalog.target.database, named) ||
      named != path)
    throw json_spirit::Error("it is of other databases than its name says");
  for (const std::string* member : {&catalog.location, &catalog.storage_path, &catalog.extern_backup_id})
    if (member->empty()) throw json_spirit::Error("it does not say where the catalog lies");
  const json_spirit::Value* const attributes = document.find("extended_attrs");
  if (attributes == nullptr || attributes->is_null())
    catalog.io_ctl = io_ctl_of(catalog.target);  // a catalog may be staged without them
  else
    catalog.io_ctl = json_spirit::object_require<json_spirit::Object>(attributes->get_obj(), io_ctl_key);
  return catalog;
}

}  // namespace

const std::string& database_of(const User_Id& user) { return user.database.empty() ? user.sid : user.database; }

unsigned Staged_Catalog::max_seconds_retry() const {
  unsigned long seconds = 0;
  json_spirit::object_get(io_ctl, "max_seconds_retry", seconds);
  return static_cast<unsigned>(std::min<unsigned long>(seconds, std::numeric_limits<int>::max()));
}

bool Staged_Catalog::is_for(const User_Id& user) const {
  return target.sid == user.sid && target.database == database_of(user);
}

bool is_owner(const User_Id& user, const std::string& object) {
  Object_Owner owner;
  return find_object_owner(object, owner) && owner == Object_Owner{user.sid, database_of(user)};
}

bool is_hana_catalog(const std::string& object) { return object.substr(object.rfind('/') + 1) == catalog_object; }

namespace {

using Search = Staged_Catalog::Search;

Search read(const std::string& path, Staged_Catalog& catalog, std::string& error) {
  json_spirit::Object document;
  if (!restore_file.read(path, document, error)) return Search::broken;
  try {
    catalog = take_members(document, path);
    return Search::found;
  } catch (const json_spirit::Error& wrong) {
    error = restore_file.describe(path, std::string("is not one of ours: ") + wrong.what(), restore_file.make_anew);
    return Search::broken;
  }
}

/// One that is no good cannot be meant: it has failed the restore that staged it.
bool names_another_version(const std::string& path, const Staged_Catalog& catalog) {
  Staged_Catalog other;
  std::string ignored;
  return read(path, other, ignored) == Search::found && other.extern_backup_id != catalog.extern_backup_id;
}

}  // namespace

Staged_Catalog::Search Staged_Catalog::load(const std::string& object, const User_Id& user, Staged_Catalog& catalog,
                                            std::string& error) {
  Object_Owner origin;
  if (!find_object_owner(object, origin)) return Search::none;
  std::vector<std::string> files;
  if (!list_files(origin, files, error)) return Search::broken;
  if (files.empty()) return Search::none;
  std::string exact;
  if (!user.sid.empty() &&
      !sap_hana::catalog_conf_file_name(origin.sid, origin.database, user.sid, database_of(user), exact))
    return Search::none;
  const bool has_exact = std::find(files.begin(), files.end(), exact) != files.end();
  const std::string path = has_exact ? exact : files.front();
  if (read(path, catalog, error) != Search::found) return Search::broken;
  // Another database as the user says which restore is meant. The origin's own may be that of any.
  if (!has_exact || Object_Owner{user.sid, database_of(user)} == origin)
    catalog.contested = std::any_of(files.begin(), files.end(), [&](const std::string& file) {
      return file != path && names_another_version(file, catalog);
    });
  return Search::found;
}

Staged_Catalog::Search Staged_Catalog::load_newest(const std::string& object, Staged_Catalog& catalog,
                                                   std::string& error) {
  Object_Owner origin;
  if (!find_object_owner(object, origin)) return Search::none;
  std::vector<std::string> files;
  if (!list_files(origin, files, error)) return Search::broken;
  return files.empty() ? Search::none : read(files.front(), catalog, error);
}

Staged_Catalog::Search Staged_Catalog::load_exact(const User_Id& origin, const User_Id& target, Staged_Catalog& catalog,
                                                  std::string& error) {
  std::string path;
  if (!sap_hana::catalog_conf_file_name(origin.sid, database_of(origin), target.sid, database_of(target), path) ||
      !platform::is_regular_file(path.c_str()))
    return Search::none;
  return read(path, catalog, error);
}

}  // namespace hdbbackint
