#pragma once

#include <memory>
#include <ostream>
#include <string>

#include "net/http_server.h"
#include "net/http_transport.h"

namespace contract {

/// One implementation of the transport with a server behind it.
class Transport_Side {
 public:
  virtual ~Transport_Side() = default;
  [[nodiscard]] virtual net::Http_Transport& transport() = 0;
  [[nodiscard]] virtual net::Endpoint endpoint() const = 0;
};

struct Side_Name {
  const char* name;
  std::unique_ptr<Transport_Side> (*make)(net::Http_Handler& handler);
};

inline void PrintTo(const Side_Name& side, std::ostream* out) { *out << side.name; }

[[nodiscard]] std::unique_ptr<Transport_Side> make_fake_side(net::Http_Handler& handler);
[[nodiscard]] std::unique_ptr<Transport_Side> make_tcp_side(net::Http_Handler& handler);
[[nodiscard]] std::unique_ptr<Transport_Side> make_tls_side(net::Http_Handler& handler);

/// A self-signed certificate for `host` (a DNS name and 127.0.0.1) with its key, as PEM files at real paths.
void write_certificate(const std::string& host, const std::string& certificate_path, const std::string& key_path);

}  // namespace contract
