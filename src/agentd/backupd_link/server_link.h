#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

#include "agent/backupd_client/agent_configuration.h"
#include "agent/backupd_client/json_rpc_forward.h"
#include "net/json_rpc_peer.h"
#include "platform/clock.h"

namespace agentd {

/// Keeps one WebSocket to backupd: connects again, after growing pauses, for as long as it is not stopped. Requests of
/// backupd go to the handler on worker threads; call sends requests the other way. Any thread may call. A request that
/// still runs when its connection breaks does not hold up the next connection: its answer is lost, its work is not.
class Server_Link : public Agent_Channel {
 public:
  using Handler = JSON_RPC_Peer::Message_Handler;
  using Side_Lane = JSON_RPC_Peer::Side_Lane;
  /// Called on the link's thread when a connection stands, requests may be coming in already; must not block.
  using Connected = std::function<void()>;

  /// `side_lane`: requests that have workers of their own.
  Server_Link(const Agent_Configuration& configuration, Handler handler, Connected connected, Side_Lane side_lane = {});
  ~Server_Link() override;
  Server_Link(const Server_Link&) = delete;
  Server_Link& operator=(const Server_Link&) = delete;

  void start();
  /// Closes the connection, waits for the handlers that run, and ends the thread. More than once is fine.
  void stop();
  /// Gives the present connection up, so that a new one is made.
  void reconnect();

  /// Number of the present connection, 0 without one; it grows with every new one.
  [[nodiscard]] std::uint64_t connection() const;
  [[nodiscard]] JSON_RPC_Answer call(const std::string& method, const json_spirit::Value& params,
                                     std::chrono::nanoseconds timeout) override;

  static constexpr const char* rpc_path = "/q5/rpc";
  static constexpr std::chrono::seconds connect_timeout{20};
  static constexpr unsigned first_pause_seconds = 1;
  static constexpr unsigned longest_pause_seconds = 60;
  /// More than the slow requests and the questions to database systems that a Method_Router lets run.
  static constexpr unsigned workers = 10;

 private:
  struct Connection {
    std::uint64_t number = 0;
    std::unique_ptr<net::Web_Socket> socket;
    std::unique_ptr<JSON_RPC_Peer> peer;
    std::thread server;               ///< reads the socket, then waits for the workers
    std::promise<void> closed;        ///< the socket has closed; workers may still run
    std::atomic<bool> served{false};  ///< nothing of it runs any more
  };

  void run();
  [[nodiscard]] std::shared_ptr<Connection> open_connection();
  void serve(const std::shared_ptr<Connection>& connection);
  void join_served();
  void join_all();
  void tell_away(const std::string& reason);
  [[nodiscard]] std::shared_ptr<Connection> current() const;

  const Agent_Configuration& configuration_;
  const Handler handler_;
  const Connected connected_;
  const Side_Lane side_lane_;
  mutable std::mutex mutex_;
  std::shared_ptr<Connection> connection_;  ///< guarded by mutex_
  platform::Wait_Event stopping_;
  std::thread thread_;
  std::uint64_t last_number_ = 0;  ///< the link's thread only
  bool away_told_ = false;         ///< the link's thread only
  /// Broken connections whose last requests may still run; the link's thread only.
  std::list<std::shared_ptr<Connection>> ending_;
};

}  // namespace agentd
