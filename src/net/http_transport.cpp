#include "net/http_transport.h"

#include <atomic>

#include "net/beast_transport.h"
#include "net/uri.h"

namespace net {
namespace {

constexpr unsigned short http_port = 80;
constexpr unsigned short https_port = 443;

std::atomic<Http_Transport*> replacement{nullptr};

}  // namespace

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
