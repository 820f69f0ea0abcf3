#pragma once

#include <memory>

#include "agent/api/json_rpc_object.h"

// What the JSON-RPC handlers share. Any thread.

namespace sap_hana {

/// The object as a request, or as a notification where `or_notification` says so; null when it is something else.
[[nodiscard]] std::shared_ptr<const JSON_RPC_Request> as_request(const std::shared_ptr<JSON_RPC_Object>& object,
                                                                 bool or_notification);

/// The response to a request; null with errno ENOMEM when there is no memory.
[[nodiscard]] std::shared_ptr<JSON_RPC_Response> make_response(const JSON_RPC_Request& request);

}  // namespace sap_hana
