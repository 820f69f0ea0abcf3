#include "hdbbackint/restore/object_search.h"

#include <algorithm>
#include <set>

#include "hdbbackint/backup/ondemand_configuration.h"
#include "hdbbackint/console.h"
#include "hdbbackint/restore/restore_origins.h"
#include "hdbbackint/restore/staged_catalog.h"

namespace hdbbackint {

namespace {

/// Of the system that stored it, as its place on the pool tells: docs/formats/stored-object.md.
std::string landscape_of(const sap_hana::Backup_File_Info& file) {
  const std::size_t host_end = file.storage_path.find('/');
  if (host_end == std::string::npos) return {};
  return file.storage_path.substr(host_end + 1, file.storage_path.find('/', host_end + 1) - host_end - 1);
}

void sort_newest_first(std::list<sap_hana::Backup_File_Info>& files) {
  files.sort([](const auto& left, const auto& right) { return left.id > right.id; });
}

}  // namespace

bool Object_Search::find() {
  const bool catalog = entry_.ebid.empty() && is_hana_catalog(entry_.name);
  if (catalog && !find_catalog()) return false;
  if (!files_.empty()) return true;
  if (!find_recorded()) return false;
  return !files_.empty() || catalog || find_restored();
}

/// A catalog is never looked for under another name when its own restore has staged one.
bool Object_Search::find_catalog() {
  bool staged = false;
  return find_staged(staged) && (staged || find_restored());
}

bool Object_Search::find_staged(bool& staged) {
  Staged_Catalog catalog;
  const Staged_Catalog::Search search = Staged_Catalog::load(entry_.name, call_.user, catalog, error_);
  if (search == Staged_Catalog::Search::found && catalog.contested && !settle(catalog)) return false;
  if (search != Staged_Catalog::Search::found) return search == Staged_Catalog::Search::none;
  staged = true;
  return take(catalog);
}

/// HANA does not say for which of several restores of one database it asks. Within a run they come one after the other.
bool Object_Search::settle(Staged_Catalog& catalog) {
  std::vector<Running_Restore> restores;
  if (!find_running_restores(call_, catalog.origin, restores, error_)) return false;
  std::set<std::string> runs;
  for (const Running_Restore& restore : restores)
    if (restore.origin.sid == catalog.origin.sid && restore.origin.database == catalog.origin.database)
      runs.insert(restore.run);
  if (runs.empty()) return true;
  if (runs.size() == 1)
    return Staged_Catalog::load_newest(entry_.name, catalog, error_) == Staged_Catalog::Search::found;
  error_ = "several restores of " + catalog.origin.database + "@" + catalog.origin.sid +
           " go on, with other versions of its catalog, and HANA does not say for which of them it asks; let one end, "
           "then begin the other again";
  return false;
}

/// The record tells how the object was stored, the file where it lies now.
bool Object_Search::take(const Staged_Catalog& catalog) {
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
  // An id exists once.
  if (!entry_.ebid.empty()) return ask(query);
  if (!entry_.name.empty()) return ask_by_name(std::move(query));
  query.host_uuid = call_.configuration.host_uuid;
  return ask(query);
}

bool Object_Search::find_restored() {
  Object_Owner owner;
  if (!find_object_owner(entry_.name, owner)) return true;
  const User_Id named{owner.sid, owner.database};
  std::vector<Running_Restore> restores;
  if (!find_running_restores(call_, named, restores, error_)) return false;
  if (const auto hosts = hosts_of_namesake(restores, named, call_.user); !hosts.empty()) return find_on(hosts);
  const User_Id origin = restored_origin(restores, named, call_.user);
  if (origin.sid.empty()) return true;
  if (!find_of(origin, named)) return false;
  // HANA knows the object by the name it has asked for.
  for (sap_hana::Backup_File_Info& file : files_) file.origin_path = entry_.name;
  return true;
}

bool Object_Search::find_on(const std::vector<std::string>& hosts) {
  std::list<sap_hana::Backup_File_Info> found;
  for (const std::string& host : hosts) {
    Query query;
    query.host_uuid = host;
    query.sid = call_.user.sid;
    query.database = call_.user.database;
    query.origin_path = entry_.name;
    query.extern_backup_id = entry_.ebid;
    if (!ask(query)) return false;
    found.splice(found.end(), files_);
  }
  files_.swap(found);
  sort_newest_first(files_);
  return true;
}

bool Object_Search::find_of(const User_Id& origin, const User_Id& target) {
  if (entry_.ebid.empty() && is_hana_catalog(entry_.name)) {
    Staged_Catalog catalog;
    const Staged_Catalog::Search search = Staged_Catalog::load_exact(origin, target, catalog, error_);
    if (search == Staged_Catalog::Search::broken) return false;
    if (search == Staged_Catalog::Search::found) return take(catalog);
  }
  Query query;
  query.sid = origin.sid;
  query.database = origin.database;
  query.origin_path = object_path(origin, entry_.name.substr(entry_.name.rfind('/') + 1));
  query.extern_backup_id = entry_.ebid;
  if (query.origin_path.empty()) return true;
  return entry_.ebid.empty() ? ask_by_name(std::move(query)) : ask(query);
}

bool Object_Search::ask_by_name(Query query) {
  query.host_uuid = call_.configuration.host_uuid;
  if (!ask(query)) return false;
  const bool own = !files_.empty();
  query.host_uuid.clear();
  return own ? add_other_hosts(std::move(query)) : ask(query);
}

bool Object_Search::add_other_hosts(Query query) {
  const std::string landscape = landscape_of(files_.front());
  if (landscape.empty()) return true;
  std::list<sap_hana::Backup_File_Info> own;
  own.swap(files_);
  if (!ask(query)) return false;
  const auto is_known = [&](const sap_hana::Backup_File_Info& file) {
    return landscape_of(file) != landscape ||
           std::any_of(own.begin(), own.end(), [&](const auto& known) { return known.id == file.id; });
  };
  files_.remove_if(is_known);
  files_.splice(files_.end(), own);
  sort_newest_first(files_);
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
