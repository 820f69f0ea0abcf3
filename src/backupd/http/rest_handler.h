#pragma once

#include <functional>
#include <string>

#include "backupd/http/key_store.h"
#include "backupd/http/router.h"
#include "backupd/identity.h"
#include "net/http_server.h"

namespace backupd {

/// Turns requests into calls of routes: knows who asks, refuses what the route's roles do not allow, reads the body.
/// Any thread, many at once.
class Rest_Handler : public net::Http_Handler {
 public:
  /// Runs one agent's WebSocket until it closes.
  using Serve_Agent = std::function<void(net::Web_Socket& socket, const Identity& who)>;

  Rest_Handler(Router& router, Key_Store& keys, Serve_Agent serve_agent);

  void handle(net::Server_Exchange& exchange) override;
  [[nodiscard]] Serve accept_web_socket(const std::string& target, const net::Http_Headers& headers,
                                        unsigned& status) override;

 private:
  [[nodiscard]] Outcome authenticate(const net::Http_Headers& headers, Identity& identity, bool& known);
  void run(const Route& route, Request& request, net::Server_Exchange& exchange);

  Router& router_;
  Key_Store& keys_;
  Serve_Agent serve_agent_;
};

/// Answers with the reply's JSON.
void respond(net::Server_Exchange& exchange, const Reply& reply);

}  // namespace backupd
