#pragma once

#include <string>
#include <vector>

#include "hdbbackint/call.h"

namespace hdbbackint {

/// The databases that are being restored into `target` now, as backupd knows them. While they are, their objects are
/// open to the target, by whichever name HANA asks for them: under the names of the database that they were saved of,
/// or of the one that they are restored into. False with an error when it cannot be told. One thread.
/// Source of the format: docs/backupd-api.md.
[[nodiscard]] bool find_restore_origins(const Call& call, const User_Id& target, std::vector<User_Id>& origins,
                                        std::string& error);

/// Where HANA had the pipe of an object `name` of a database, in a system with tenants and in one without.
[[nodiscard]] std::vector<std::string> object_paths(const User_Id& owner, const std::string& name);

}  // namespace hdbbackint
