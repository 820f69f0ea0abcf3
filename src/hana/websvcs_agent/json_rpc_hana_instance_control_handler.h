#pragma once

#include "agent/api/json_rpc_handler.h"

/// Starts, stops and restarts a HANA instance of this host, and tells its state: "hana.instance.control" with {"sid",
/// "instance_name", "action"}. Returns when the instance has reached its state, which takes minutes.
/// "hana.database.create" (database_creation.h) is answered here too; any other method is taken for the first one.
/// Keeps nothing between calls; any thread.
class JSON_RPC_HANA_Instance_Control_Handler : public JSON_RPC_Handler {
 public:
  int handle_object(std::weak_ptr<JSON_RPC_Channel> channel, std::shared_ptr<JSON_RPC_Object> object) override;
  ~JSON_RPC_HANA_Instance_Control_Handler() override;
};
