#include "hdbbackint/restore/staged_catalog.h"

#include <sys/stat.h>

#include <algorithm>
#include <limits>
#include <tuple>
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

constexpr State_File_Kind restore_file{"the restore's file", "remove it and begin the restore again"};

using Modified = std::tuple<time_t, long>;

bool modified_at(const std::string& path, Modified& time) {
  struct stat status {};
  if (::stat(platform::File_Root::current().real(path).c_str(), &status) != 0) return false;
  time = {status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
  return true;
}

/// Whether a file of that name may tell of an object of `owner`: one that its database is restored from, or into, as
/// HANA may look for another one's objects under the names of its own.
bool tells_of(const Object_Owner& owner, const std::string& name) {
  return (name.starts_with(sap_hana::catalog_conf_prefix(owner.sid, owner.database)) && name.ends_with(file_ending)) ||
         (name.starts_with(sap_hana::catalog_conf_start) &&
          name.ends_with(sap_hana::catalog_conf_suffix(owner.sid, owner.database)));
}

/// The file from the object's owner into the user's database, else the newest that tells of the owner; empty when there
/// is none. False with an error when it cannot be told.
bool find_file(const Object_Owner& owner, const User_Id& user, std::string& path, std::string& error) {
  const std::string directory = sap_hana::restore_catalog_directory();
  std::vector<std::string> names;
  if (!list_state_files(directory, names, error)) return false;
  if (!user.sid.empty() &&
      !sap_hana::catalog_conf_file_name(owner.sid, owner.database, user.sid, database_of(user), path))
    return true;
  if (platform::is_regular_file(path.c_str())) return true;
  path.clear();
  Modified newest;
  for (const std::string& name : names) {
    if (!tells_of(owner, name)) continue;
    const std::string candidate = scrt::join_path(directory, name);
    Modified time;
    if (!modified_at(candidate, time) || (!path.empty() && time <= newest)) continue;
    path = candidate;
    newest = time;
  }
  return true;
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
  const auto attributes = json_spirit::object_require<json_spirit::Object>(document, "extended_attrs");
  catalog.io_ctl = json_spirit::object_require<json_spirit::Object>(attributes, "io_ctl");
  std::string named;
  if (!sap_hana::catalog_conf_file_name(catalog.origin.sid, catalog.origin.database, catalog.target.sid,
                                        catalog.target.database, named) ||
      named != path)
    throw json_spirit::Error("it is of other databases than its name says");
  for (const std::string* member : {&catalog.location, &catalog.storage_path, &catalog.extern_backup_id})
    if (member->empty()) throw json_spirit::Error("it does not say where the catalog lies");
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

Staged_Catalog::Search Staged_Catalog::load(const std::string& object, const User_Id& user, Staged_Catalog& catalog,
                                            std::string& error) {
  Object_Owner owner;
  if (!find_object_owner(object, owner)) return Search::none;
  std::string path;
  if (!find_file(owner, user, path, error)) return Search::broken;
  if (path.empty()) return Search::none;
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

}  // namespace hdbbackint
