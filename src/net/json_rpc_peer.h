#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "json/value.h"
#include "net/http_transport.h"
#include "net/json_rpc.h"
#include "platform/clock.h"

/// The answer of a call over a JSON_RPC_Peer.
struct JSON_RPC_Answer {
  bool ok = false;
  json_spirit::Value result;  ///< of an error: its data
  int code = 0;               ///< a JSON_RPC_Error_Code or the other side's own
  std::string message;
};

/// Calls that are given up together, because nobody waits for their answers any more. Any thread.
class JSON_RPC_Call_Group {
 public:
  /// Ends the group's calls, also those made later, with JSON_RPC_E_NOT_CONNECTED.
  void give_up();

 private:
  friend class JSON_RPC_Peer;
  /// False when the group was given up.
  [[nodiscard]] bool enter(platform::Wait_Event& wake);
  void leave(platform::Wait_Event& wake);

  std::mutex mutex_;
  std::set<platform::Wait_Event*> calls_;  ///< guarded by mutex_, as below
  bool given_up_ = false;
};

/// JSON-RPC 2.0 in both directions over one WebSocket. The socket's reader thread only sorts messages: requests run on
/// worker threads, answers wake their caller. Every operation may be called from any thread.
class JSON_RPC_Peer {
 public:
  /// Runs one request and returns its answer; called on a worker thread, several at once.
  using Handler = std::function<JSON_RPC_Answer(const std::string& method, const json_spirit::Value& params)>;

  /// The same for one that wants to see more of the message: what it returns for a notification is dropped.
  using Message_Handler = std::function<JSON_RPC_Answer(const JSON_RPC_Message& message)>;

  /// Requests that wait for workers of their own, apart from all others: what may take long must not hold up the rest.
  struct Side_Lane {
    std::function<bool(const JSON_RPC_Message& message)> takes = {};  ///< called on the reader's thread, must not block
    unsigned workers = 0;
  };

  JSON_RPC_Peer(net::Web_Socket& socket, Handler handler, unsigned workers = 4);
  JSON_RPC_Peer(net::Web_Socket& socket, Message_Handler handler, unsigned workers, Side_Lane side_lane);
  ~JSON_RPC_Peer();
  JSON_RPC_Peer(const JSON_RPC_Peer&) = delete;
  JSON_RPC_Peer& operator=(const JSON_RPC_Peer&) = delete;

  /// Requests of one lane that wait for a worker; more are refused, so that a flood of them cannot fill the memory.
  static constexpr std::size_t waiting_limit = 1000;

  /// Reads until the socket closes, calls `closed`, which must not block, then answers every open call with
  /// JSON_RPC_E_NOT_CONNECTED and waits for the workers.
  void serve(const std::function<void()>& closed = {});
  [[nodiscard]] JSON_RPC_Answer call(const std::string& method, const json_spirit::Value& params,
                                     std::chrono::nanoseconds timeout, JSON_RPC_Call_Group* group = nullptr,
                                     const json_spirit::Value& requester = {});
  void notify(const std::string& method, const json_spirit::Value& params);
  void close();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};
