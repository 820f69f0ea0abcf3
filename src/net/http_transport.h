#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "net/http_message.h"
#include "platform/secure_string.h"

namespace net {

/// Where a server listens, from a URL "http[s]://host:port".
struct Endpoint {
  bool tls = false;
  std::string host;
  unsigned short port = 0;
  std::string ca_file;  ///< documented path of the accepted authorities; empty: the system's
  /// Nobody on the way can read what is sent: TLS, or it does not leave this machine.
  [[nodiscard]] bool is_private() const;
  [[nodiscard]] bool operator==(const Endpoint&) const = default;
};

/// An address of 127.0.0.0/8, "::1" or "localhost"; other names are not looked up.
[[nodiscard]] bool is_loopback(const std::string& host);

/// Reads the scheme, host and port of a URL; false when it is not an http(s) URL.
[[nodiscard]] bool parse_endpoint(const std::string& url, Endpoint& endpoint);

struct Net_Error {
  enum Kind { none, resolve, connect, tls, timeout, closed, protocol, body };
  Kind kind = none;
  std::string text;
};

/// One kept-alive connection, used by one thread at a time.
class Http_Connection {
 public:
  virtual ~Http_Connection() = default;
  /// Sends `request`, reads the whole answer (up to http_body_limit_bytes). `timeout` bounds the time without progress.
  /// False: nothing is known about whether the server acted; the connection is closed and `response` empty.
  virtual bool exchange(const Http_Request& request, Http_Response& response, std::chrono::nanoseconds timeout,
                        Net_Error& error) = 0;
  /// The same with the answer's body streamed into `sink` when the status is 2xx; an error body goes to
  /// response.body.
  virtual bool exchange(const Http_Request& request, Http_Response& response, Body_Sink& sink,
                        std::chrono::nanoseconds timeout, Net_Error& error) = 0;
};

/// One open WebSocket with text messages. receive on one thread, send from any.
class Web_Socket {
 public:
  virtual ~Web_Socket() = default;
  virtual bool send(const std::string& text, Net_Error& error) = 0;
  /// Blocks for the next message; false when the socket is closed or broken.
  virtual bool receive(std::string& text, Net_Error& error) = 0;
  /// Lets a blocked receive return; safe from any thread, more than once.
  virtual void close() = 0;
};

/// The seam to the network: a process-wide default over TCP and TLS that a test replaces for a scope.
class Http_Transport {
 public:
  virtual ~Http_Transport() = default;
  [[nodiscard]] virtual std::unique_ptr<Http_Connection> connect(const Endpoint& endpoint,
                                                                 std::chrono::nanoseconds timeout,
                                                                 Net_Error& error) = 0;
  /// Opens a WebSocket at `target`; `bearer` goes into the Authorization field. Messages are pinged by the
  /// implementation, so that a dead peer is noticed within a minute.
  [[nodiscard]] virtual std::unique_ptr<Web_Socket> open_web_socket(const Endpoint& endpoint, const std::string& target,
                                                                    const secure_string& bearer,
                                                                    std::chrono::nanoseconds timeout,
                                                                    Net_Error& error) = 0;
  [[nodiscard]] static Http_Transport& current();
};

class Scoped_Http_Transport {
 public:
  explicit Scoped_Http_Transport(Http_Transport& transport);
  ~Scoped_Http_Transport();
  Scoped_Http_Transport(const Scoped_Http_Transport&) = delete;
  Scoped_Http_Transport& operator=(const Scoped_Http_Transport&) = delete;

 private:
  Http_Transport* previous_;
};

}  // namespace net
