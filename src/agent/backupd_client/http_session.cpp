#include "agent/backupd_client/http_session.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "platform/clock.h"

namespace {

constexpr std::size_t idle_limit = 4;
/// Shorter than a server keeps a quiet connection, so that what is taken here is hardly ever closed already.
constexpr std::chrono::seconds idle_time_limit{30};

/// Sending it twice does what sending it once does.
bool repeatable(const std::string& method) {
  constexpr std::array<std::string_view, 4> methods{"GET", "HEAD", "PUT", "DELETE"};
  return std::find(methods.begin(), methods.end(), method) != methods.end();
}

bool stays_open(const net::Http_Response& response) {
  const std::string* const connection = response.headers.find("Connection");
  return connection == nullptr || *connection != "close";
}

std::string url_of(const net::Endpoint& endpoint) {
  const bool address = endpoint.host.find(':') != std::string::npos;
  return std::string(endpoint.tls ? "https://" : "http://") + (address ? "[" + endpoint.host + "]" : endpoint.host) +
         ":" + std::to_string(endpoint.port);
}

}  // namespace

HTTP_Session::HTTP_Session(net::Endpoint endpoint, secure_string access_key)
    : endpoint_(std::move(endpoint)), access_key_(std::move(access_key)), url_(url_of(endpoint_)) {}

HTTP_Session::~HTTP_Session() = default;

bool HTTP_Session::exchange(net::Http_Request request, net::Http_Response& response, std::chrono::nanoseconds timeout,
                            net::Net_Error& error) {
  authorize(request);
  if (std::unique_ptr<net::Http_Connection> kept = take_idle()) {
    if (kept->exchange(request, response, timeout, error)) {
      if (stays_open(response)) give_back(std::move(kept));
      return true;
    }
    const bool may_be_stale = error.kind == net::Net_Error::closed && request.body_source == nullptr;
    if (!may_be_stale || !repeatable(request.method)) return false;
  }
  std::unique_ptr<net::Http_Connection> fresh = connect(timeout, error);
  if (!fresh || !fresh->exchange(request, response, timeout, error)) return false;
  if (stays_open(response)) give_back(std::move(fresh));
  return true;
}

std::unique_ptr<net::Http_Connection> HTTP_Session::connect(std::chrono::nanoseconds timeout, net::Net_Error& error) {
  return net::Http_Transport::current().connect(endpoint_, timeout, error);
}

void HTTP_Session::authorize(net::Http_Request& request) const { request.headers.set_bearer(access_key_); }

std::unique_ptr<net::Http_Connection> HTTP_Session::take_idle() {
  const auto now = platform::Clock::current().steady_now();
  std::vector<Idle_Connection> too_old;  // closed after the lock is released
  const std::lock_guard lock(mutex_);
  while (!idle_.empty()) {
    Idle_Connection last = std::move(idle_.back());
    idle_.pop_back();
    if (now - last.since < idle_time_limit) return std::move(last.connection);
    too_old.push_back(std::move(last));
  }
  return nullptr;
}

void HTTP_Session::give_back(std::unique_ptr<net::Http_Connection> connection) {
  const auto now = platform::Clock::current().steady_now();
  const std::lock_guard lock(mutex_);
  if (idle_.size() < idle_limit) idle_.push_back({std::move(connection), now});
}
