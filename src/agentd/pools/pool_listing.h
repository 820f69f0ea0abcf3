#pragma once

#include "json/value.h"
#include "net/json_rpc_peer.h"

namespace agentd {

/// The request "pool.list" {"url", "directories": [path]}: what directories of a storage pool hold that this host
/// reaches. The result is {"directories": [{"path", "entries": [{"name", "directory", "size"}]}]}; a directory that is
/// not there has no entries. A pool that cannot be reached is an error.
[[nodiscard]] JSON_RPC_Answer list_pool(const json_spirit::Object& params);

}  // namespace agentd
