#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "net/json_rpc.h"

// The framing: what is understood is written again and understood as the same.

namespace {

std::string text_of(const JSON_RPC_Message& message) {
  switch (message.kind) {
    case JSON_RPC_Message::request:
    case JSON_RPC_Message::notification:
      return json_rpc_request_text(message.id, message.method, message.params, message.requester);
    case JSON_RPC_Message::result:
      return json_rpc_result_text(message.id, message.result_value);
    default:
      return json_rpc_error_text(message.id, message.error_code, message.error_message, message.error_data);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const JSON_RPC_Message message = JSON_RPC_Message::parse({reinterpret_cast<const char*>(data), size});
  const JSON_RPC_Message again = JSON_RPC_Message::parse(text_of(message));
  if (message.kind == JSON_RPC_Message::invalid) {
    if (again.kind != JSON_RPC_Message::error || again.error_code != message.error_code) std::abort();
    return 0;
  }
  // A request whose id is null is written without one.
  const bool same_kind =
      again.kind == message.kind || (message.kind == JSON_RPC_Message::request && message.id.is_null());
  if (!same_kind || again.method != message.method || !(again.id == message.id)) std::abort();
  return 0;
}
