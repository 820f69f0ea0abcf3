#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "dorsal3/outcome.h"
#include "dorsal3/server/configuration.h"
#include "json/value.h"

namespace dorsal3 {

/// REST calls to backupd with the operator's key. Used by one thread. Each call tells success by its result and else
/// fills `failure` with what the server, or the network, said.
class Server_Client {
 public:
  explicit Server_Client(const Configuration& configuration) : configuration_(configuration) {}
  virtual ~Server_Client() = default;

  /// `path` is below /q5/r/v2 and starts with '/'; a query is encoded already.
  [[nodiscard]] bool get(const std::string& path, json_spirit::Object& answer, Failure& failure);
  [[nodiscard]] bool post(const std::string& path, const json_spirit::Object& body, json_spirit::Object& answer,
                          Failure& failure, std::chrono::seconds timeout = default_timeout);
  /// The same for an answer that may be any JSON value.
  [[nodiscard]] bool post_for_value(const std::string& path, const json_spirit::Object& body,
                                    json_spirit::Value& answer, Failure& failure, std::chrono::seconds timeout);
  /// DELETE; an agent may have to work for it.
  [[nodiscard]] bool remove(const std::string& path, json_spirit::Object& answer, Failure& failure);
  /// The rows of a list answer.
  [[nodiscard]] bool get_rows(const std::string& path, std::vector<json_spirit::Object>& rows, Failure& failure);
  /// The same, with the number of rows that the server has in all.
  [[nodiscard]] bool get_page(const std::string& path, std::vector<json_spirit::Object>& rows, std::uint64_t& total,
                              Failure& failure);

  static constexpr std::chrono::seconds default_timeout{60};
  /// For requests during which an agent works.
  static constexpr std::chrono::seconds agent_timeout{300};
  /// Starting and stopping an instance, which backupd gives an hour.
  static constexpr std::chrono::seconds control_timeout{3600 + 60};
  static constexpr std::chrono::hours verify_timeout{24};

 private:
  bool request(net::Http_Request& request, json_spirit::Object& answer, Failure& failure, std::chrono::seconds timeout);
  bool request(net::Http_Request& request, json_spirit::Value& answer, Failure& failure, std::chrono::seconds timeout);
  bool take_object(json_spirit::Value& value, json_spirit::Object& answer, Failure& failure) const;
  bool send(const net::Http_Request& request, net::Http_Response& response, Failure& failure,
            std::chrono::seconds timeout);

  const Configuration& configuration_;
  std::unique_ptr<net::Http_Connection> connection_;
};

/// "key=value" with the value percent-encoded.
[[nodiscard]] std::string query_pair(const char* key, const std::string& value);
/// Text that somebody typed as one segment of a path: whatever it holds, it stays within that segment.
[[nodiscard]] std::string path_segment(const std::string& text);

}  // namespace dorsal3
