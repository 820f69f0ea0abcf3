#pragma once

#include <string>
#include <string_view>

#include "json/value.h"

/// Error codes of JSON-RPC 2.0 and of this system.
enum JSON_RPC_Error_Code {
  JSON_RPC_E_PARSE = -32700,
  JSON_RPC_E_INVALID_REQUEST = -32600,
  JSON_RPC_E_METHOD_NOT_FOUND = -32601,
  JSON_RPC_E_INVALID_PARAMS = -32602,
  JSON_RPC_E_INTERNAL = -32603,
  JSON_RPC_E_SERVER = -32000,
  JSON_RPC_E_TIMEOUT = -32001,
  JSON_RPC_E_NOT_CONNECTED = -32002
};

/// One message of either direction, as read from text.
struct JSON_RPC_Message {
  enum Kind { invalid, request, notification, result, error };
  Kind kind = invalid;
  json_spirit::Value id;
  std::string method;
  json_spirit::Value params;
  json_spirit::Value requester;  ///< of a request that is handed on: who made it, as an object; else null
  json_spirit::Value result_value;
  int error_code = 0;
  std::string error_message;
  json_spirit::Value error_data;

  /// Never throws; `kind` is invalid, with error_code and error_message set, for what is not JSON-RPC 2.0.
  [[nodiscard]] static JSON_RPC_Message parse(std::string_view text);
};

/// `requester`, when it is not null, says in whose name the request is made: a member of ours beside those of the
/// standard, which who does not know it passes over.
[[nodiscard]] std::string json_rpc_request_text(const json_spirit::Value& id, std::string_view method,
                                                const json_spirit::Value& params,
                                                const json_spirit::Value& requester = {});
[[nodiscard]] std::string json_rpc_result_text(const json_spirit::Value& id, const json_spirit::Value& result);
[[nodiscard]] std::string json_rpc_error_text(const json_spirit::Value& id, int code, std::string_view message,
                                              const json_spirit::Value& data = {});
