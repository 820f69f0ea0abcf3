#include "hdbbackint/restore/object_search.h"

#include "hdbbackint/backup/ondemand_configuration.h"
#include "hdbbackint/console.h"
#include "hdbbackint/restore/restore_origins.h"
#include "hdbbackint/restore/staged_catalog.h"

namespace hdbbackint {

bool Object_Search::find() {
  bool staged = false;
  if (entry_.ebid.empty() && is_hana_catalog(entry_.name) && !find_staged(staged)) return false;
  if (staged) return true;
  return find_recorded() && (!files_.empty() || find_restored());
}

/// The record tells how the object was stored, the file where it lies now.
bool Object_Search::find_staged(bool& staged) {
  Staged_Catalog catalog;
  const Staged_Catalog::Search search = Staged_Catalog::load(entry_.name, call_.user, catalog, error_);
  if (search != Staged_Catalog::Search::found) return search == Staged_Catalog::Search::none;
  staged = true;
  Query query;
  query.sid = catalog.origin.sid;
  query.database = catalog.origin.database;
  query.extern_backup_id = catalog.extern_backup_id;
  if (!ask(query)) return false;
  if (files_.empty()) {
    error_ = "backupd has no record of the version " + catalog.extern_backup_id + " that the restore's file " +
             catalog.path + " names; begin the restore again";
    return false;
  }
  sap_hana::Backup_File_Info& file = files_.front();
  file.location = catalog.location;
  file.storage_path = catalog.storage_path;
  file.source_type = catalog.source_type;
  file.pool_uuid = catalog.pool_uuid;
  return true;
}

bool Object_Search::find_recorded() {
  const User_Id user = owner();
  Query query;
  query.sid = user.sid;
  query.database = user.database;
  query.origin_path = entry_.name;
  query.extern_backup_id = entry_.ebid;
  // A name alone may exist on several hosts: this one's objects come first, another one's are those of a system that
  // moved or is copied. An id exists once.
  if (entry_.ebid.empty()) query.host_uuid = call_.configuration.host_uuid;
  if (!ask(query)) return false;
  if (!files_.empty() || query.host_uuid.empty() || entry_.name.empty()) return true;
  query.host_uuid.clear();
  return ask(query);
}

bool Object_Search::find_restored() {
  Object_Owner named;
  if (!find_object_owner(entry_.name, named)) return true;
  std::vector<User_Id> origins;
  if (!find_restore_origins(call_, call_.user, origins, error_)) return false;
  if (!is_owner(call_.user, entry_.name)) {
    std::vector<User_Id> of_named;
    if (!find_restore_origins(call_, {named.sid, named.database}, of_named, error_)) return false;
    for (User_Id& origin : of_named)
      if (origin.sid == call_.user.sid && origin.database == database_of(call_.user))
        origins.push_back(std::move(origin));
  }
  for (const User_Id& origin : origins) {
    if (!find_of(origin)) return false;
    if (files_.empty()) continue;
    // HANA knows the object by the name it has asked for.
    for (sap_hana::Backup_File_Info& file : files_) file.origin_path = entry_.name;
    return true;
  }
  return true;
}

bool Object_Search::find_of(const User_Id& origin) {
  const std::string name = entry_.name.substr(entry_.name.rfind('/') + 1);
  for (const std::string& path : object_paths(origin, name)) {
    Query query;
    query.sid = origin.sid;
    query.database = origin.database;
    query.origin_path = path;
    query.extern_backup_id = entry_.ebid;
    if (!ask(query)) return false;
    if (!files_.empty()) return true;
  }
  return true;
}

bool Object_Search::ask(const Query& query) {
  const Cause_Capture cause;
  if (!call_.records(default_seconds_retry).get_files(query, files_)) {
    error_ = "cannot look it up in backupd: " + cause.text();
    return false;
  }
  // An exact name is meant, never the beginning of one.
  files_.remove_if([&](const sap_hana::Backup_File_Info& file) {
    return (!query.origin_path.empty() && file.origin_path != query.origin_path) ||
           (!query.extern_backup_id.empty() && file.extern_backup_id != query.extern_backup_id);
  });
  return true;
}

User_Id Object_Search::owner() const {
  Staged_Catalog catalog;
  std::string ignored;
  const bool staged = !is_owner(call_.user, entry_.name) &&
                      Staged_Catalog::load(entry_.name, call_.user, catalog, ignored) == Staged_Catalog::Search::found;
  return staged && catalog.is_for(call_.user) ? catalog.origin : call_.user;
}

}  // namespace hdbbackint
