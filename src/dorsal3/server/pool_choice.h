#pragma once

#include "dorsal3/server/server_client.h"

namespace dorsal3 {

/// The record of the storage pool `wanted`, or of the only one there is for an empty name; a failure names what there
/// is.
[[nodiscard]] bool choose_pool(Server_Client& server, const std::string& wanted, json_spirit::Object& pool,
                               Failure& failure);

}  // namespace dorsal3
