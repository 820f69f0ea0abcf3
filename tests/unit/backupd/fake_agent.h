#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <thread>

#include "net/json_rpc_peer.h"
#include "unit/backupd/memory_server.h"

namespace backupd_test {

inline JSON_RPC_Answer good(json_spirit::Value result) { return {true, std::move(result), 0, {}}; }
inline JSON_RPC_Answer bad(int code, const std::string& message) { return {false, {}, code, message}; }

/// An agent at the other end of a WebSocket: answers with a function, asks with call().
class Fake_Agent {
 public:
  using Answers = std::function<JSON_RPC_Answer(const std::string& method, const json_spirit::Value& params)>;

  Fake_Agent(Memory_Server& server, const std::string& key, Answers answers) {
    net::Net_Error error;
    socket_ = server.network->open_web_socket({false, "backupd.test", 9443, ""}, "/q5/rpc", secure_string(key),
                                              std::chrono::seconds(10), error);
    EXPECT_TRUE(socket_) << error.text;
    peer_ = std::make_unique<JSON_RPC_Peer>(*socket_, std::move(answers));
    thread_ = std::thread([this] { peer_->serve(); });
  }
  ~Fake_Agent() { leave(); }
  Fake_Agent(const Fake_Agent&) = delete;
  Fake_Agent& operator=(const Fake_Agent&) = delete;

  JSON_RPC_Answer call(const std::string& method, const std::string& params) {
    json_spirit::Value value;
    EXPECT_TRUE(json_spirit::load_json(params, value)) << params;
    return peer_->call(method, value, std::chrono::seconds(10));
  }
  JSON_RPC_Answer hello(const std::string& host, const std::string& more = "") {
    return call("agent.hello",
                R"({"host_uuid":")" + host + R"(","name":"hana1","version":"1.0","modules":["hana"])" + more + "}");
  }
  void leave() {
    if (!thread_.joinable()) return;
    peer_->close();
    thread_.join();
  }
  /// Until the server closed the socket.
  void wait_closed() {
    if (thread_.joinable()) thread_.join();
  }

 private:
  std::unique_ptr<net::Web_Socket> socket_;
  std::unique_ptr<JSON_RPC_Peer> peer_;
  std::thread thread_;
};

/// Answers every method with an empty object.
inline JSON_RPC_Answer obedient(const std::string&, const json_spirit::Value&) { return good(json_spirit::Object()); }

}  // namespace backupd_test
