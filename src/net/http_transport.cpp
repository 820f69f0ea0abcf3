#include "net/http_transport.h"

#include <arpa/inet.h>

#include <atomic>
#include <cstdint>

#include "net/beast_transport.h"
#include "net/uri.h"

namespace net {
namespace {

constexpr unsigned short http_port = 80;
constexpr unsigned short https_port = 443;
constexpr std::uint32_t loopback_network = 127;
constexpr unsigned network_shift = 24;

std::atomic<Http_Transport*> replacement{nullptr};

}  // namespace

bool is_loopback(const std::string& host) {
  in_addr four{};
  if (::inet_pton(AF_INET, host.c_str(), &four) == 1) return (ntohl(four.s_addr) >> network_shift) == loopback_network;
  return host == "::1" || host == "[::1]" || host == "localhost";
}

bool Endpoint::is_private() const { return tls || is_loopback(host); }

bool parse_endpoint(const std::string& url, Endpoint& endpoint) {
  URI uri;
  if (!uri.parse(url) || uri.host().decoded_val_.empty()) return false;
  const bool tls = uri.scheme() == "https";
  if (!tls && uri.scheme() != "http") return false;
  endpoint.tls = tls;
  endpoint.host = uri.host().decoded_val_;
  endpoint.port = uri.port() != 0 ? uri.port() : tls ? https_port : http_port;
  return true;
}

Http_Transport& Http_Transport::current() {
  Http_Transport* const replaced = replacement.load();
  return replaced != nullptr ? *replaced : beast_transport();
}

Scoped_Http_Transport::Scoped_Http_Transport(Http_Transport& transport) : previous_(replacement.exchange(&transport)) {}

Scoped_Http_Transport::~Scoped_Http_Transport() { replacement.store(previous_); }

}  // namespace net
