#pragma once

#include <string>

#include "dorsal3/server/server_client.h"

namespace dorsal3 {

/// The run whose id is `typed`, or the one whose id begins with it; `record` becomes the run as the server shows it.
/// False with `failure`: no such run (not_found), several of them (usage), or the server's own failure. Runs are looked
/// through newest first, up to search_limit of them.
[[nodiscard]] bool find_run(Server_Client& server, const std::string& typed, json_spirit::Object& record,
                            Failure& failure);

/// The same for backup sets; `uuid` becomes the whole uuid. A text as long as a uuid is taken as it is: whether the set
/// exists is then not looked at.
[[nodiscard]] bool find_set(Server_Client& server, const std::string& typed, std::string& uuid, Failure& failure);

/// How many rows are looked through for the beginning of an id.
constexpr std::uint64_t search_limit = 10000;

}  // namespace dorsal3
