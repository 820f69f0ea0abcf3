#include "hdbbackint/restore/object_search.h"

#include "hdbbackint/console.h"
#include "hdbbackint/restore/staged_catalog.h"

namespace hdbbackint {

bool Object_Search::find() {
  bool staged = false;
  if (entry_.ebid.empty() && is_hana_catalog(entry_.name) && !find_staged(staged)) return false;
  return staged || find_recorded();
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
