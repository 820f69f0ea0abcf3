#pragma once

#include <memory>
#include <utility>

#include "net/http_transport.h"

namespace support {

/// Two ends of one WebSocket in memory: what one sends the other receives, in order. Closing or destroying either end
/// ends both; messages sent before are still received.
[[nodiscard]] std::pair<std::unique_ptr<net::Web_Socket>, std::unique_ptr<net::Web_Socket>> make_web_socket_pair();

}  // namespace support
