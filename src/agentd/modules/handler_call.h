#pragma once

#include <chrono>
#include <string>

#include "agent/api/json_rpc_handler.h"
#include "net/json_rpc_peer.h"

namespace agentd {

/// Hands one message to a module's handler and waits for its answer, which may come on another thread. A request that
/// the handler lets go without an answer is refused in its place at once, and one that it keeps is given up after
/// `limit`. A notification is handed over as one; there is no answer to it, whatever is returned.
[[nodiscard]] JSON_RPC_Answer call_handler(JSON_RPC_Handler& handler, const JSON_RPC_Message& message,
                                           std::chrono::seconds limit);

}  // namespace agentd
