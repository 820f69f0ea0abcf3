#pragma once

#include <chrono>
#include <string>

#include "agent/api/json_rpc_handler.h"
#include "net/json_rpc_peer.h"

namespace agentd {

/// Hands one request to a module's handler and waits for its answer, which may come on another thread. A handler that
/// takes the request and never answers is given up after `limit`.
[[nodiscard]] JSON_RPC_Answer call_handler(JSON_RPC_Handler& handler, const std::string& method,
                                           const json_spirit::Value& params, std::chrono::seconds limit);

}  // namespace agentd
