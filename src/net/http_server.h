#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "net/http_message.h"
#include "net/http_transport.h"

namespace net {

/// One request as a handler sees it. The body is read by the handler, so that large ones are never held in memory.
class Server_Exchange {
 public:
  virtual ~Server_Exchange() = default;
  [[nodiscard]] virtual const std::string& method() const = 0;
  [[nodiscard]] virtual const std::string& target() const = 0;
  [[nodiscard]] virtual const Http_Headers& headers() const = 0;
  /// "127.0.0.1" and the like.
  [[nodiscard]] virtual std::string peer_address() const = 0;

  /// The whole body; false with nothing kept when it is larger than `limit` or the peer is gone.
  virtual bool read_body(std::string& body, std::size_t limit = http_body_limit_bytes) = 0;
  /// Streams the body into `sink`; true only when it arrived whole.
  virtual bool read_body(Body_Sink& sink) = 0;

  /// Answers; exactly one of the respond operations is called, once.
  virtual void respond(const Http_Response& response) = 0;
  /// Streams `body`; when it fails the connection is cut, so that the peer never takes a part for the whole.
  virtual void respond(const Http_Response& head, Body_Source& body) = 0;
};

/// What a server does. handle is called on a worker thread, many at once. accept_web_socket decides about an upgrade:
/// null refuses with 401/404 by `status`.
class Http_Handler {
 public:
  virtual ~Http_Handler() = default;
  virtual void handle(Server_Exchange& exchange) = 0;
  /// Called on a thread of the socket's own, which then runs `serve` until the socket is closed.
  using Serve = std::function<void(Web_Socket& socket)>;
  [[nodiscard]] virtual Serve accept_web_socket(const std::string& target, const Http_Headers& headers,
                                                unsigned& status) = 0;
};

struct Server_Options {
  std::string address = "127.0.0.1";
  unsigned short port = 0;       ///< 0: any free one
  std::string certificate_file;  ///< documented paths; TLS when set
  std::string private_key_file;
  unsigned workers = 8;  ///< each stands for 32 connections at once; a connection beyond them is answered with 503
};

/// Listens and serves until destroyed or stopped. start tells the port taken.
class Http_Server {
 public:
  Http_Server(Http_Handler& handler, Server_Options options);
  ~Http_Server();
  Http_Server(const Http_Server&) = delete;
  Http_Server& operator=(const Http_Server&) = delete;

  /// False with a reason when it cannot listen.
  [[nodiscard]] bool start(std::string& error);
  [[nodiscard]] unsigned short port() const;
  /// Takes no new request, lets running ones end (up to 5 s), closes sockets.
  void stop();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace net
