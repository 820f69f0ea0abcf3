#pragma once

#include <cstdint>
#include <string>

#include "dorsal3/server/server_client.h"

namespace dorsal3 {

/// Bytes of the objects that were stored so far for a run: what the server's object records sum up to. It grows object
/// by object. A run whose records cannot be read now keeps its last count.
class Received_Bytes {
 public:
  [[nodiscard]] std::uint64_t count(Server_Client& server, const std::string& job_act_id);

 private:
  std::uint64_t last_ = 0;
};

}  // namespace dorsal3
