#include "agentd/backupd_link/server_link.h"

#include "platform/log.h"
#include "scrt/exponential_backoff_iterator.h"

namespace agentd {

namespace {

constexpr unsigned without_end = static_cast<unsigned>(-1);

}  // namespace

Server_Link::Server_Link(const Agent_Configuration& configuration, Handler handler, Connected connected,
                         Side_Lane side_lane)
    : configuration_(configuration),
      handler_(std::move(handler)),
      connected_(std::move(connected)),
      side_lane_(std::move(side_lane)) {}

Server_Link::~Server_Link() { stop(); }

void Server_Link::start() {
  thread_ = std::thread([this] { run(); });
}

void Server_Link::stop() {
  stopping_.set();
  reconnect();
  if (thread_.joinable()) thread_.join();
}

void Server_Link::reconnect() {
  if (const auto connection = current()) connection->peer->close();
}

std::uint64_t Server_Link::connection() const {
  const auto connection = current();
  return connection == nullptr ? 0 : connection->number;
}

JSON_RPC_Answer Server_Link::call(const std::string& method, const json_spirit::Value& params,
                                  std::chrono::nanoseconds timeout) {
  // The pointer keeps peer and socket for this call, whatever the link does meanwhile.
  if (const auto connection = current()) return connection->peer->call(method, params, timeout);
  JSON_RPC_Answer answer;
  answer.code = JSON_RPC_E_NOT_CONNECTED;
  answer.message = "backupd is not connected";
  return answer;
}

std::shared_ptr<Server_Link::Connection> Server_Link::current() const {
  const std::lock_guard lock(mutex_);
  return connection_;
}

void Server_Link::run() {
  const Exponential_Backoff_Iterator first(first_pause_seconds, without_end, longest_pause_seconds, true);
  Exponential_Backoff_Iterator pause = first;
  while (!stopping_.is_set()) {
    if (const auto connection = open_connection()) {
      const auto since = platform::Clock::current().steady_now();
      serve(connection);
      // A server that takes the connection and drops it at once is not asked again without a pause.
      const bool held = platform::Clock::current().steady_now() - since > std::chrono::seconds(longest_pause_seconds);
      if (held) pause = first;
    }
    join_served();
    if (platform::Clock::current().wait_for(stopping_, std::chrono::seconds(*pause))) break;
    ++pause;
  }
  join_all();
}

std::shared_ptr<Server_Link::Connection> Server_Link::open_connection() {
  secure_string key;
  std::string reason;
  if (!configuration_.load_access_key(key, reason)) {
    tell_away(reason);
    return nullptr;
  }
  net::Net_Error error;
  auto connection = std::make_shared<Connection>();
  connection->number = ++last_number_;
  connection->socket =
      net::Http_Transport::current().open_web_socket(configuration_.endpoint, rpc_path, key, connect_timeout, error);
  if (connection->socket == nullptr) {
    tell_away(error.text);
    return nullptr;
  }
  connection->peer = std::make_unique<JSON_RPC_Peer>(*connection->socket, handler_, workers, side_lane_);
  return connection;
}

void Server_Link::serve(const std::shared_ptr<Connection>& connection) {
  {
    const std::lock_guard lock(mutex_);
    if (stopping_.is_set()) return;
    connection_ = connection;
  }
  away_told_ = false;
  D3_INFO("Connected to backupd at %C\n", configuration_.server_url.c_str());
  connected_();
  // The list keeps the connection until its thread is joined.
  connection->server = std::thread([&served = *connection] {
    served.peer->serve([&served] { served.closed.set_value(); });
    served.served = true;
  });
  ending_.push_back(connection);
  connection->closed.get_future().wait();
  {
    const std::lock_guard lock(mutex_);
    connection_.reset();
  }
  if (!stopping_.is_set()) D3_WARNING("The connection to backupd at %C has ended\n", configuration_.server_url.c_str());
}

void Server_Link::join_served() {
  ending_.remove_if([](const std::shared_ptr<Connection>& connection) {
    if (!connection->served) return false;
    connection->server.join();
    return true;
  });
}

void Server_Link::join_all() {
  for (const auto& connection : ending_) connection->server.join();
  ending_.clear();
}

/// Once per absence: a server that is down over night does not fill the log.
void Server_Link::tell_away(const std::string& reason) {
  if (away_told_) return;
  away_told_ = true;
  D3_WARNING("Failed to connect to backupd at %C, %C; trying again until it is there\n",
             configuration_.server_url.c_str(), platform::cut_for_log(reason).c_str());
}

}  // namespace agentd
