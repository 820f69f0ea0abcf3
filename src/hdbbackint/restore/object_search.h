#pragma once

#include <list>
#include <string>

#include "hana/backint_catalog/backint_backup_file.h"
#include "hdbbackint/call.h"
#include "hdbbackint/restore/staged_catalog.h"

namespace hdbbackint {

/// Finds the records of the objects that an entry of a restore or an inquiry asks for. One thread; used once.
///
/// A user sees its own database's objects and, while a restore into it goes on, those of the database that the restore
/// comes from, by whichever of the two names HANA asks for them. While one goes on, its catalog has one version: the
/// one that the restore has staged.
class Object_Search {
 public:
  Object_Search(const Call& call, const Request_Entry& entry) : call_(call), entry_(entry) {}

  /// Fills files(), newest first. False with error() when it cannot be told.
  [[nodiscard]] bool find();
  [[nodiscard]] std::list<sap_hana::Backup_File_Info>& files() { return files_; }
  [[nodiscard]] const std::string& error() const { return error_; }

 private:
  using Query = sap_hana::Backint_Catalog_helper::File_Query;

  [[nodiscard]] bool find_catalog();
  [[nodiscard]] bool find_staged(bool& staged);
  [[nodiscard]] bool settle(Staged_Catalog& catalog);
  [[nodiscard]] bool take(const Staged_Catalog& catalog);
  [[nodiscard]] bool find_recorded();
  /// Looks among what a restore that goes on brings back under another name or for another user.
  [[nodiscard]] bool find_restored();
  [[nodiscard]] bool find_of(const User_Id& origin, const User_Id& target);
  /// Looks among what certain hosts have stored of the user's database.
  [[nodiscard]] bool find_on(const std::vector<std::string>& hosts);
  /// By name alone: the versions of this host and of its system, which a master may have left and come back to; only
  /// where there are none those of other systems, one of which has moved or is copied.
  [[nodiscard]] bool ask_by_name(Query query);
  /// Adds what other hosts of the system have stored.
  [[nodiscard]] bool add_other_hosts(Query query);
  [[nodiscard]] bool ask(const Query& query);
  [[nodiscard]] User_Id owner() const;

  const Call& call_;
  const Request_Entry& entry_;
  std::list<sap_hana::Backup_File_Info> files_;
  std::string error_;
};

}  // namespace hdbbackint
