#include "chains/meeting_transport.h"

#include <gtest/gtest.h>

namespace chains {

namespace {

constexpr int of_two = 2;
constexpr std::chrono::milliseconds look_again{1};
/// Only something broken takes that long.
constexpr std::chrono::seconds meeting_limit{30};

/// The question for the newest set; that for one backup's set names its id.
bool asks_for_newest_set(const net::Http_Request& request) {
  return request.target.find("/sets/restore/sets?") != std::string::npos &&
         request.target.find("database_backup_id=") == std::string::npos;
}

}  // namespace

class Meeting_Transport::Connection : public net::Http_Connection {
 public:
  Connection(Meeting_Transport& owner, std::unique_ptr<net::Http_Connection> real)
      : owner_(owner), real_(std::move(real)) {}

  bool exchange(const net::Http_Request& request, net::Http_Response& response, std::chrono::nanoseconds timeout,
                net::Net_Error& error) override {
    const bool done = real_->exchange(request, response, timeout, error);
    if (asks_for_newest_set(request)) owner_.arrive();
    return done;
  }
  bool exchange(const net::Http_Request& request, net::Http_Response& response, net::Body_Sink& sink,
                std::chrono::nanoseconds timeout, net::Net_Error& error) override {
    return real_->exchange(request, response, sink, timeout, error);
  }

 private:
  Meeting_Transport& owner_;
  std::unique_ptr<net::Http_Connection> real_;
};

Meeting_Transport::Meeting_Transport(std::function<bool()> held_off)
    : real_(net::Http_Transport::current()), held_off_(std::move(held_off)), scope_(*this) {}
Meeting_Transport::~Meeting_Transport() = default;

std::unique_ptr<net::Http_Connection> Meeting_Transport::connect(const net::Endpoint& endpoint,
                                                                 std::chrono::nanoseconds timeout,
                                                                 net::Net_Error& error) {
  std::unique_ptr<net::Http_Connection> real = real_.connect(endpoint, timeout, error);
  if (real == nullptr) return nullptr;
  return std::make_unique<Connection>(*this, std::move(real));
}

std::unique_ptr<net::Web_Socket> Meeting_Transport::open_web_socket(const net::Endpoint& endpoint,
                                                                    const std::string& target,
                                                                    const secure_string& bearer,
                                                                    std::chrono::nanoseconds timeout,
                                                                    net::Net_Error& error) {
  return real_.open_web_socket(endpoint, target, bearer, timeout, error);
}

bool Meeting_Transport::met() const {
  const std::lock_guard guard(mutex_);
  return met_;
}

void Meeting_Transport::arrive() {
  std::unique_lock guard(mutex_);
  const bool first = ++arrived_ == 1;
  changed_.notify_all();
  if (!first) return;
  const auto limit = std::chrono::steady_clock::now() + meeting_limit;
  while (arrived_ < of_two && !held_off_() && std::chrono::steady_clock::now() < limit)
    changed_.wait_for(guard, look_again);
  met_ = arrived_ == of_two;
}

}  // namespace chains
