#include "net/json_rpc.h"

using json_spirit::Object;
using json_spirit::Value;

namespace {

constexpr const char* protocol_version = "2.0";
/// Members that are secrets wherever they stand: they become secure strings, which wipe themselves.
constexpr const char* secret_keys[] = {"password", nullptr};

JSON_RPC_Message refuse(JSON_RPC_Message message, int code, const std::string& why) {
  message.kind = JSON_RPC_Message::invalid;
  message.error_code = code;
  message.error_message = why;
  return message;
}

bool is_id(const Value& id) {
  return id.is_string() || id.type() == json_spirit::int_type || id.type() == json_spirit::real_type || id.is_null();
}

/// The error object of a reply: {"code", "message", "data"?}.
bool read_error(const Value& error, JSON_RPC_Message& message) {
  if (!error.is_object()) return false;
  const Object& object = error.get_obj();
  if (!json_spirit::object_get(object, "code", message.error_code) ||
      !json_spirit::object_get(object, "message", message.error_message))
    return false;
  if (const Value* data = object.find("data")) message.error_data = *data;
  return true;
}

JSON_RPC_Message read_reply(const Object& object, bool has_id, JSON_RPC_Message message) {
  const Value* const result = object.find("result");
  const Value* const error = object.find("error");
  if (!has_id) return refuse(std::move(message), JSON_RPC_E_INVALID_REQUEST, "neither \"method\" nor \"id\"");
  if ((result == nullptr) == (error == nullptr))
    return refuse(std::move(message), JSON_RPC_E_INVALID_REQUEST, "a reply needs either \"result\" or \"error\"");
  if (result != nullptr) {
    message.kind = JSON_RPC_Message::result;
    message.result_value = *result;
    return message;
  }
  if (!read_error(*error, message))
    return refuse(std::move(message), JSON_RPC_E_INVALID_REQUEST, "malformed \"error\" in a reply");
  message.kind = JSON_RPC_Message::error;
  return message;
}

JSON_RPC_Message read_request(const Object& object, bool has_id, const Value& method, JSON_RPC_Message message) {
  if (!method.is_string()) return refuse(std::move(message), JSON_RPC_E_INVALID_REQUEST, "\"method\" is not a string");
  message.method = method.get_str();
  // Of any type: what a method can do with it, the method's handler says.
  if (const Value* params = object.find("params")) message.params = *params;
  if (const Value* requester = object.find("requester")) {
    if (!requester->is_object())
      return refuse(std::move(message), JSON_RPC_E_INVALID_REQUEST, "\"requester\" is not an object");
    message.requester = *requester;
  }
  message.kind = has_id ? JSON_RPC_Message::request : JSON_RPC_Message::notification;
  return message;
}

JSON_RPC_Message read_message(const Object& object) {
  JSON_RPC_Message message;
  const Value* const id = object.find("id");
  if (id != nullptr) {
    if (!is_id(*id)) return refuse({}, JSON_RPC_E_INVALID_REQUEST, "\"id\" is neither a string, a number nor null");
    message.id = *id;
  }
  std::string version;
  if (!json_spirit::object_get(object, "jsonrpc", version) || version != protocol_version)
    return refuse(std::move(message), JSON_RPC_E_INVALID_REQUEST, "\"jsonrpc\" is not \"2.0\"");
  if (const Value* method = object.find("method"))
    return read_request(object, id != nullptr, *method, std::move(message));
  return read_reply(object, id != nullptr, std::move(message));
}

}  // namespace

JSON_RPC_Message JSON_RPC_Message::parse(std::string_view text) {
  try {
    Value value;
    std::string why;
    if (!json_spirit::load_json(text, value, &why, {}, secret_keys))
      return refuse({}, JSON_RPC_E_PARSE, "not JSON: " + why);
    if (!value.is_object()) return refuse({}, JSON_RPC_E_INVALID_REQUEST, "the message is not an object");
    return read_message(value.get_obj());
  } catch (const std::exception& caught) {
    return refuse({}, JSON_RPC_E_INTERNAL, caught.what());
  }
}

std::string json_rpc_request_text(const Value& id, std::string_view method, const Value& params,
                                  const Value& requester) {
  Object message{{"jsonrpc", protocol_version}};
  // A request without an id is a notification.
  if (!id.is_null()) message["id"] = id;
  message["method"] = method;
  if (!params.is_null()) message["params"] = params;
  if (!requester.is_null()) message["requester"] = requester;
  return json_spirit::dump_json(std::move(message));
}

std::string json_rpc_result_text(const Value& id, const Value& result) {
  return json_spirit::dump_json(Object{{"jsonrpc", protocol_version}, {"id", id}, {"result", result}});
}

std::string json_rpc_error_text(const Value& id, int code, std::string_view message, const Value& data) {
  Object error{{"code", code}, {"message", message}};
  if (!data.is_null()) error["data"] = data;
  return json_spirit::dump_json(Object{{"jsonrpc", protocol_version}, {"id", id}, {"error", std::move(error)}});
}
