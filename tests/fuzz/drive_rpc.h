#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "agent/api/json_rpc_handler.h"
#include "fuzz/small_host.h"
#include "json/value.h"

namespace fuzz {

/// Counts the answers to one request.
class Counting_Channel : public JSON_RPC_Channel {
 public:
  int close() override { return 0; }
  int send(std::shared_ptr<JSON_RPC_Object>) override { return ++answers, 0; }
  int send_error(int, const json_spirit::Value&, const std::string&, const json_spirit::Value&) override {
    return ++answers, 0;
  }
  int answers = 0;
};

/// The request with these params; null when they are no JSON.
inline std::shared_ptr<JSON_RPC_Request> request_with(const std::uint8_t* data, std::size_t size) {
  json_spirit::Value params;
  if (!json_spirit::load_json({reinterpret_cast<const char*>(data), size}, params)) return nullptr;
  return std::make_shared<JSON_RPC_Request>(1, "m", params);
}

}  // namespace fuzz
