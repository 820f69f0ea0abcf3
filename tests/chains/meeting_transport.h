#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>

#include "net/http_transport.h"

namespace chains {

/// The real transport, but for one question: whoever asked for a database's newest set keeps the answer to himself
/// until the other of two threads has one too, or cannot get one. So both decide on what was true before either of them
/// acts, if nothing keeps them apart. Installed as the process's transport for its life.
class Meeting_Transport : public net::Http_Transport {
 public:
  /// `held_off`: the other thread waits for this one, and will not ask before this one is done.
  explicit Meeting_Transport(std::function<bool()> held_off);
  ~Meeting_Transport() override;

  std::unique_ptr<net::Http_Connection> connect(const net::Endpoint& endpoint, std::chrono::nanoseconds timeout,
                                                net::Net_Error& error) override;
  std::unique_ptr<net::Web_Socket> open_web_socket(const net::Endpoint& endpoint, const std::string& target,
                                                   const secure_string& bearer, std::chrono::nanoseconds timeout,
                                                   net::Net_Error& error) override;
  /// Both had their answers at the same time.
  [[nodiscard]] bool met() const;

 private:
  class Connection;
  void arrive();

  net::Http_Transport& real_;
  std::function<bool()> held_off_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  int arrived_ = 0;   ///< guarded by mutex_
  bool met_ = false;  ///< guarded by mutex_
  net::Scoped_Http_Transport scope_;
};

}  // namespace chains
