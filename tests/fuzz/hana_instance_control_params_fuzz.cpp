#include "drive_rpc.h"
#include "hana/websvcs_agent/json_rpc_hana_instance_control_handler.h"

// Params of the instance control handler: one answer, and no program but those of the installed instance.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static fuzz::Small_Host host;
  JSON_RPC_HANA_Instance_Control_Handler handler;
  const auto request = fuzz::request_with(data, size);
  if (request == nullptr) return 0;
  const auto channel = std::make_shared<fuzz::Counting_Channel>();
  if (handler.handle_object(channel, request) != 0 || channel->answers != 1) std::abort();
  return 0;
}
