#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "net/http_message.h"
#include "support/temp_root.h"

namespace contract {

/// The server's program, installed below a temporary root and run as a process of its own.
class Running_Server {
 public:
  Running_Server();
  ~Running_Server();
  Running_Server(const Running_Server&) = delete;
  Running_Server& operator=(const Running_Server&) = delete;

  /// Starts it and waits until it listens.
  void start();
  /// Ends it with `signal`; its wait status.
  int end(int signal);
  /// Runs the program with arguments to its end: exit status and what it printed.
  int run(const std::vector<std::string>& arguments, std::string& output) const;
  [[nodiscard]] std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
  [[nodiscard]] std::string make_key(const std::string& role, const std::string& host = {}) const;
  /// False when no answer came.
  bool ask(const std::string& method, const std::string& target, const std::string& key, const std::string& body,
           net::Http_Response& response) const;

  support::Temp_Root root;

 private:
  [[nodiscard]] pid_t spawn(const std::vector<std::string>& arguments, int output) const;

  std::string program_;
  unsigned short port_ = 0;
  pid_t pid_ = -1;
};

}  // namespace contract
