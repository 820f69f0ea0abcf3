#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "net/http_message.h"
#include "net/http_transport.h"
#include "platform/secure_string.h"

/// A server, the key to it and the kept-alive connections to it. Any number of threads: each exchange takes an idle
/// connection or opens one.
class HTTP_Session {
 public:
  HTTP_Session(net::Endpoint endpoint, secure_string access_key);
  ~HTTP_Session();
  HTTP_Session(const HTTP_Session&) = delete;
  HTTP_Session& operator=(const HTTP_Session&) = delete;

  [[nodiscard]] const net::Endpoint& endpoint() const { return endpoint_; }
  /// "https://host:port", for messages and for urls below it.
  [[nodiscard]] const std::string& url() const { return url_; }

  /// One attempt, with the key added. False when no whole answer came; whether the server acted is then not known. A
  /// kept connection that the server had closed meanwhile is replaced once without counting as a failure when the
  /// method may be repeated safely (GET, HEAD, PUT, DELETE).
  [[nodiscard]] bool exchange(net::Http_Request request, net::Http_Response& response, std::chrono::nanoseconds timeout,
                              net::Net_Error& error);
  /// A connection of the caller's own, for streams; the key goes into the request through authorize.
  [[nodiscard]] std::unique_ptr<net::Http_Connection> connect(std::chrono::nanoseconds timeout, net::Net_Error& error);
  void authorize(net::Http_Request& request) const;

 private:
  struct Idle_Connection {
    std::unique_ptr<net::Http_Connection> connection;
    std::chrono::steady_clock::time_point since;
  };

  const net::Endpoint endpoint_;
  const secure_string access_key_;
  const std::string url_;
  std::mutex mutex_;
  std::vector<Idle_Connection> idle_;  ///< guarded by mutex_, the last used at the end

  [[nodiscard]] std::unique_ptr<net::Http_Connection> take_idle();
  void give_back(std::unique_ptr<net::Http_Connection> connection);
};

using HTTP_Session_var = std::shared_ptr<HTTP_Session>;
