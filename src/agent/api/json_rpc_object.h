#pragma once

#include <string>
#include <utility>

#include "json/value.h"

/// One JSON-RPC message.
class JSON_RPC_Object {
 public:
  enum Kind { KIND_NOTIFICATION, KIND_REQUEST, KIND_RESPONSE, KIND_ERROR };

  JSON_RPC_Object(Kind kind, json_spirit::Value id) : kind_(kind), id_(std::move(id)) {}
  virtual ~JSON_RPC_Object() = default;
  [[nodiscard]] Kind kind() const { return kind_; }
  /// Null for a notification.
  [[nodiscard]] const json_spirit::Value& id() const { return id_; }

 private:
  Kind kind_;
  json_spirit::Value id_;
};

/// A request, or a notification, which wants no answer.
class JSON_RPC_Request : public JSON_RPC_Object {
 public:
  JSON_RPC_Request(json_spirit::Value id, std::string method, json_spirit::Value params)
      : JSON_RPC_Object(KIND_REQUEST, std::move(id)), method_(std::move(method)), params_(std::move(params)) {}
  JSON_RPC_Request(std::string method, json_spirit::Value params)
      : JSON_RPC_Object(KIND_NOTIFICATION, {}), method_(std::move(method)), params_(std::move(params)) {}
  [[nodiscard]] const std::string& method() const { return method_; }
  /// Null when the request has none.
  [[nodiscard]] const json_spirit::Value& params() const { return params_; }

 private:
  std::string method_;
  json_spirit::Value params_;
};

/// The answer to a request: carries its id.
class JSON_RPC_Response : public JSON_RPC_Object {
 public:
  explicit JSON_RPC_Response(const JSON_RPC_Request& request) : JSON_RPC_Object(KIND_RESPONSE, request.id()) {}
  json_spirit::Value result;
};
