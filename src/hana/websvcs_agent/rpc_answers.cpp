#include "hana/websvcs_agent/rpc_answers.h"

#include <cerrno>
#include <exception>
#include <new>

#include "net/json_rpc.h"
#include "platform/log.h"

namespace sap_hana {

namespace {

constexpr const char* bad_params = "Failed to initialize params\n";

}  // namespace

std::shared_ptr<const JSON_RPC_Request> as_request(const std::shared_ptr<JSON_RPC_Object>& object,
                                                   bool or_notification) {
  if (object == nullptr) return nullptr;
  const bool wanted = object->kind() == JSON_RPC_Object::KIND_REQUEST ||
                      (or_notification && object->kind() == JSON_RPC_Object::KIND_NOTIFICATION);
  return wanted ? std::dynamic_pointer_cast<const JSON_RPC_Request>(object) : nullptr;
}

std::shared_ptr<JSON_RPC_Response> make_response(const JSON_RPC_Request& request) {
  try {
    if (auto* const response = new (std::nothrow) JSON_RPC_Response(request))
      return std::shared_ptr<JSON_RPC_Response>(response);
  } catch (const std::bad_alloc&) {
    // The copy of the id, or the counter of the holders.
  }
  errno = ENOMEM;
  return {};
}

int handle_with(Answer_Function answer, const std::weak_ptr<JSON_RPC_Channel>& channel,
                const std::shared_ptr<JSON_RPC_Object>& object) {
  const std::shared_ptr<const JSON_RPC_Request> request = as_request(object, true);
  if (request == nullptr) {
    D3_EMERGENCY("Unexpected error in %N:%l, obj is neither JSON-RPC request nor notify!\n");
    return -1;
  }
  const std::shared_ptr<JSON_RPC_Channel> requester = channel.lock();
  if (requester == nullptr) {
    D3_ERROR("Abort handling JSON-RPC request, requester has gone.\n");
    return -1;
  }
  try {
    return answer(*requester, *request);
  } catch (const std::exception& error) {
    D3_ERROR("Invalid params: %s", platform::cut_for_log(error.what()).c_str());
    return requester->send_error(JSON_RPC_E_INVALID_PARAMS, request->id(), bad_params);
  }
}

}  // namespace sap_hana
