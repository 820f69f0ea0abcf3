#pragma once

#include "net/http_transport.h"

namespace net {

/// The transport over TCP and TLS.
[[nodiscard]] Http_Transport& beast_transport();

}  // namespace net
