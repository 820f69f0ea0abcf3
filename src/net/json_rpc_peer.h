#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "json/value.h"
#include "net/http_transport.h"
#include "net/json_rpc.h"

/// The answer of a call over a JSON_RPC_Peer.
struct JSON_RPC_Answer {
  bool ok = false;
  json_spirit::Value result;
  int code = 0;  ///< a JSON_RPC_Error_Code or the other side's own
  std::string message;
};

/// JSON-RPC 2.0 in both directions over one WebSocket. The socket's reader thread only sorts messages: requests run on
/// worker threads, answers wake their caller. Every operation may be called from any thread.
class JSON_RPC_Peer {
 public:
  /// Runs one request and returns its answer; called on a worker thread, several at once.
  using Handler = std::function<JSON_RPC_Answer(const std::string& method, const json_spirit::Value& params)>;

  JSON_RPC_Peer(net::Web_Socket& socket, Handler handler, unsigned workers = 4);
  ~JSON_RPC_Peer();
  JSON_RPC_Peer(const JSON_RPC_Peer&) = delete;
  JSON_RPC_Peer& operator=(const JSON_RPC_Peer&) = delete;

  /// Reads until the socket closes, then answers every open call with JSON_RPC_E_NOT_CONNECTED and waits for the
  /// workers.
  void serve();
  [[nodiscard]] JSON_RPC_Answer call(const std::string& method, const json_spirit::Value& params,
                                     std::chrono::nanoseconds timeout);
  void notify(const std::string& method, const json_spirit::Value& params);
  void close();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};
