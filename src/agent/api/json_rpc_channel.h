#pragma once

#include <memory>
#include <string>

#include "json/value.h"

class JSON_RPC_Object;

/// The connection to whoever sent a request. Slots: destructor, close, send, send_error. Any thread may call it.
class JSON_RPC_Channel {
 public:
  virtual ~JSON_RPC_Channel() = default;
  virtual int close() = 0;
  /// 0, or -1 when the requester has gone.
  virtual int send(std::shared_ptr<JSON_RPC_Object> object) = 0;
  virtual int send_error(int code, const json_spirit::Value& id, const std::string& message,
                         const json_spirit::Value& data = {}) = 0;
};
