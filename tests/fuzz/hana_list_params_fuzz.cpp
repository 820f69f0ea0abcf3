#include "agent/instance/instance_manager.h"
#include "drive_rpc.h"
#include "hana/websvcs_agent/json_rpc_hana_list_handler.h"

// Params of the list handler, on a host with one registered instance and an account for it.

namespace {

class Direct_Handler : public JSON_RPC_HANA_List_Handler {
 public:
  using JSON_RPC_HANA_List_Handler::handle_object_i;
};

struct Host {
  fuzz::Small_Host files;
  Instance_Manager registry;
  Scoped_Instance_Manager scope{registry};
  Direct_Handler handler;

  Host() {
    auto instance = std::make_shared<Instance>();
    instance->type = "hana";
    instance->name = "HDB_HDB00";
    instance->options = {{"sid", "HDB"}, {"instance_name", "HDB00"}};
    if (!registry.open() || !registry.store({{instance->name, instance}}) ||
        !registry.set_account("hana", instance->name, "", "U", secure_string("p")))
      std::abort();
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Host host;
  const auto request = fuzz::request_with(data, size);
  if (request == nullptr) return 0;
  const auto channel = std::make_shared<fuzz::Counting_Channel>();
  (void)host.handler.handle_object_i(channel, request);
  if (channel->answers != 1) std::abort();
  return 0;
}
