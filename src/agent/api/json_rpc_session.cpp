#include "agent/api/json_rpc_session.h"

#include <new>

bool JSON_RPC_Session::make_rpc_request(const std::string& method, const json_spirit::Value& params,
                                        std::shared_ptr<JSON_RPC_Request>& request) {
  if (channel_ == nullptr) return false;
  try {
    request = std::make_shared<JSON_RPC_Request>(++last_id_, method, params);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

bool JSON_RPC_Session::request(const std::shared_ptr<JSON_RPC_Request>& request,
                               std::shared_ptr<JSON_RPC_Object>& response, int /*flags*/) {
  if (channel_ == nullptr || request == nullptr) return false;
  JSON_RPC_Answer answer = channel_->call(request->method(), request->params(), answer_limit);
  if (answer.ok) {
    auto result = std::make_shared<JSON_RPC_Response>(*request);
    result->result = std::move(answer.result);
    response = std::move(result);
    return true;
  }
  if (answer.code == JSON_RPC_E_NOT_CONNECTED || answer.code == JSON_RPC_E_TIMEOUT) return false;
  response = std::make_shared<JSON_RPC_Object>(JSON_RPC_Object::KIND_ERROR, request->id());
  return true;
}
