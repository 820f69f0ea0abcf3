#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "net/http_server.h"
#include "net/http_transport.h"

namespace support {

/// A request as it reached the server's side; body as far as the handler read it.
struct Seen_Request {
  std::string method;
  std::string target;
  net::Http_Headers headers;
  std::string body;
};

/// What happens to one request instead of a plain exchange.
struct Http_Fault {
  enum Kind {
    none,
    lose_request,  ///< the connection breaks before the server has seen anything
    lose_reply,    ///< the server acts, its answer never arrives
    cut_request,   ///< the request's body breaks off after `bytes`
    cut_reply,     ///< the answer's body breaks off after `bytes`
    answer         ///< `status` and `body` come back, the handler is not asked
  };
  Kind kind = none;
  std::size_t bytes = 0;
  unsigned status = 0;
  std::string body = {};
};

/// The network in memory, installed as the process's transport for its life: every request goes to one Http_Handler,
/// on the thread that makes it. WebSockets are served on threads that end with this object. Safe for several threads.
class Fake_Http_Transport : public net::Http_Transport {
 public:
  explicit Fake_Http_Transport(net::Http_Handler& handler);
  ~Fake_Http_Transport() override;

  std::unique_ptr<net::Http_Connection> connect(const net::Endpoint& endpoint, std::chrono::nanoseconds timeout,
                                                net::Net_Error& error) override;
  std::unique_ptr<net::Web_Socket> open_web_socket(const net::Endpoint& endpoint, const std::string& target,
                                                   const secure_string& bearer, std::chrono::nanoseconds timeout,
                                                   net::Net_Error& error) override;

  /// The next `times` connections (also WebSockets) are refused.
  void refuse_connections(unsigned times);
  /// Lets `skip` requests pass and puts `fault` on the next `times`.
  void fault(const Http_Fault& fault, unsigned times = 1, unsigned skip = 0);
  /// Connections that are open break when they are used next, as when the server had been restarted.
  void close_kept_connections();
  /// Breaks every open WebSocket.
  void close_web_sockets();

  [[nodiscard]] std::vector<Seen_Request> requests() const;
  [[nodiscard]] std::vector<net::Endpoint> connections() const;
  void forget();

 private:
  class Connection;
  friend class Connection;

  net::Http_Handler& handler_;
  mutable std::mutex mutex_;
  unsigned refusals_ = 0;  // guarded by mutex_, as all below
  unsigned generation_ = 0;
  std::deque<Http_Fault> faults_;
  std::vector<Seen_Request> requests_;
  std::vector<net::Endpoint> connections_;
  std::vector<std::shared_ptr<net::Web_Socket>> served_;
  std::vector<std::thread> threads_;
  net::Scoped_Http_Transport scope_;

  [[nodiscard]] bool take_connection(const net::Endpoint& endpoint, net::Net_Error& error);
  [[nodiscard]] Http_Fault take_fault();
  [[nodiscard]] unsigned generation() const;
  void note(Seen_Request request);
};

/// A server that expects exactly the requests of a list, in order, and gives the answers that stand there. A request
/// that is not the next one, and one that never came, fail the test with both texts.
class Scripted_Http_Handler : public net::Http_Handler {
 public:
  ~Scripted_Http_Handler() override;

  /// `body` is compared exactly; "*" fits any.
  void expect(const std::string& method, const std::string& target, const std::string& body, unsigned status,
              const std::string& answer);
  void handle(net::Server_Exchange& exchange) override;
  Serve accept_web_socket(const std::string& target, const net::Http_Headers& headers, unsigned& status) override;

 private:
  struct Step {
    std::string request;
    std::string body;
    net::Http_Response answer;
  };
  std::mutex mutex_;
  std::deque<Step> steps_;  // guarded by mutex_
};

}  // namespace support
