#pragma once

#include "agent/api/json_rpc_channel.h"
#include "agent/api/json_rpc_object.h"

namespace sap_hana {

inline constexpr const char* create_database_method = "hana.database.create";

/// Creates a tenant database that is not started: {"sid", "instance_name", "database", "password"}, the last one of the
/// new database's user SYSTEM. Answers {"error": 0} when HANA has it, which may take minutes, else an error whose
/// message tells why: -32602 for params that cannot be used, -32603 else. Logs on to the system database with the
/// account that is stored for the instance. What the channel's send gave, or -1. Keeps nothing; any thread.
[[nodiscard]] int answer_database_creation(JSON_RPC_Channel& channel, const JSON_RPC_Request& request);

}  // namespace sap_hana
