#pragma once

#include <string>
#include <vector>

#include "hdbbackint/call.h"

namespace hdbbackint {

/// One database that is being restored into another one, or in place.
struct Running_Restore {
  std::string run;
  User_Id origin;
  User_Id target;
  std::vector<std::string> origin_hosts;  ///< uuids, when another system than the target's was backed up
};

/// The restores on this host that go on into a database, or of it, as backupd knows them. False with an error when it
/// cannot be told. One thread. Source of the format: docs/backupd-api.md.
[[nodiscard]] bool find_running_restores(const Call& call, const User_Id& database,
                                         std::vector<Running_Restore>& restores, std::string& error);

/// Whose objects HANA means by names of `named`'s as `user`, other than `named`'s own for itself; a user without a SID
/// when there is no other. While a restore goes on, the origin's objects are open to it:
/// - to the target, under the origin's names;
/// - to either, under the target's names, unless the target is itself being read for a restore.
[[nodiscard]] User_Id restored_origin(const std::vector<Running_Restore>& restores, const User_Id& named,
                                      const User_Id& user);

/// The hosts whose objects HANA means by the names of `named` as `user`, while a restore brings that database back from
/// another system of the same names; empty when none does.
[[nodiscard]] std::vector<std::string> hosts_of_namesake(const std::vector<Running_Restore>& restores,
                                                         const User_Id& named, const User_Id& user);

/// Where HANA had the pipe of an object `name` of a database; empty when there is no such place.
[[nodiscard]] std::string object_path(const User_Id& owner, const std::string& name);

}  // namespace hdbbackint
