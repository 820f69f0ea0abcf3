#include "hana/websvcs_agent/rpc_answers.h"

#include <cerrno>
#include <new>

namespace sap_hana {

std::shared_ptr<const JSON_RPC_Request> as_request(const std::shared_ptr<JSON_RPC_Object>& object,
                                                   bool or_notification) {
  if (object == nullptr) return nullptr;
  const bool wanted = object->kind() == JSON_RPC_Object::KIND_REQUEST ||
                      (or_notification && object->kind() == JSON_RPC_Object::KIND_NOTIFICATION);
  return wanted ? std::dynamic_pointer_cast<const JSON_RPC_Request>(object) : nullptr;
}

std::shared_ptr<JSON_RPC_Response> make_response(const JSON_RPC_Request& request) {
  auto* const response = new (std::nothrow) JSON_RPC_Response(request);
  if (response == nullptr) errno = ENOMEM;
  return std::shared_ptr<JSON_RPC_Response>(response);
}

}  // namespace sap_hana
