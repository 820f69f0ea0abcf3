#pragma once

#include <string>

#include "hdbbackint/protocol/user_id.h"
#include "json/value.h"

namespace hdbbackint {

/// What a restore has left for this program: which version of HANA's catalog its recovery reads, and how the restore
/// does its input and output. Source of the format: docs/formats/restore-catalog.md.
struct Staged_Catalog {
  enum class Search {
    none,  ///< no restore of this origin is going on
    found,
    broken  ///< there is a file that is no good; the error says which, what is wrong and what to do
  };

  std::string path;  ///< of the file it was read from
  std::string location;
  std::string storage_path;
  std::string source_type;
  std::string extern_backup_id;
  std::string pool_uuid;
  User_Id origin;
  User_Id target;  ///< a system without tenants has its SID for a database
  json_spirit::Object io_ctl;

  /// Seconds for which the restore tries again; 0 when it does not say.
  [[nodiscard]] unsigned max_seconds_retry() const;
  [[nodiscard]] bool is_for(const User_Id& user) const;

  /// Another restore of the same origin has staged another version.
  bool contested = false;

  /// Finds the file for the database that `object` (a path of HANA's) belongs to, as origin: the one for the target
  /// `user`, else the newest. `catalog` is filled when it is found.
  [[nodiscard]] static Search load(const std::string& object, const User_Id& user, Staged_Catalog& catalog,
                                   std::string& error);
  /// The newest of the origin that `object` belongs to.
  [[nodiscard]] static Search load_newest(const std::string& object, Staged_Catalog& catalog, std::string& error);
  /// The one of an origin for a target alone.
  [[nodiscard]] static Search load_exact(const User_Id& origin, const User_Id& target, Staged_Catalog& catalog,
                                         std::string& error);
};

/// The database of a user; a system without tenants has one, which is called like it.
[[nodiscard]] const std::string& database_of(const User_Id& user);

/// True when `object` lies where HANA makes the pipes of `user`'s database.
[[nodiscard]] bool is_owner(const User_Id& user, const std::string& object);

/// True for the name under which HANA saves its own catalog of a database.
[[nodiscard]] bool is_hana_catalog(const std::string& object);

}  // namespace hdbbackint
