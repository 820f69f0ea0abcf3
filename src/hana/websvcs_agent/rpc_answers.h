#pragma once

#include <memory>

#include "agent/api/json_rpc_channel.h"
#include "agent/api/json_rpc_object.h"

// What the JSON-RPC handlers share. Any thread.

namespace sap_hana {

/// The object as a request, or as a notification where `or_notification` says so; null when it is something else.
[[nodiscard]] std::shared_ptr<const JSON_RPC_Request> as_request(const std::shared_ptr<JSON_RPC_Object>& object,
                                                                 bool or_notification);

/// The response to a request; null with errno ENOMEM when there is no memory.
[[nodiscard]] std::shared_ptr<JSON_RPC_Response> make_response(const JSON_RPC_Request& request);

/// Reads what is asked for, does it and answers: what the channel's send gave, or -1 when nothing could be answered.
/// May throw a standard exception before it has answered, as reading a member that is not there does.
using Answer_Function = int (*)(JSON_RPC_Channel& requester, const JSON_RPC_Request& request);

/// What a handler on the caller's thread does with an object: a request or a notification whose requester is still
/// there is given to `answer`, and what that throws becomes the error -32602, with a message. What `answer` gave, or
/// -1, with a message, when there was nobody or nothing to answer. Holds the requester for the length of the call.
[[nodiscard]] int handle_with(Answer_Function answer, const std::weak_ptr<JSON_RPC_Channel>& channel,
                              const std::shared_ptr<JSON_RPC_Object>& object);

}  // namespace sap_hana
