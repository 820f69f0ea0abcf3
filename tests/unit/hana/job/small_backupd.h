#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "json/value.h"
#include "net/http_server.h"

namespace backup_test {

/// A backup server in memory with what a data backup asks of it. Requests come on several threads; a test changes the
/// public members before it runs anything.
class Small_Backupd : public net::Http_Handler {
 public:
  using Set_Key = std::pair<std::string, std::uint64_t>;  ///< database, HANA's backup id or 0 for the newest

  void handle(net::Server_Exchange& exchange) override;
  Serve accept_web_socket(const std::string& target, const net::Http_Headers& headers, unsigned& status) override;

  /// "METHOD target" of every request so far.
  [[nodiscard]] std::vector<std::string> requests() const;
  [[nodiscard]] std::size_t count_of(const std::string& request_start) const;

  /// The resource's record; null: backupd knows no such resource.
  json_spirit::Value resource;
  /// Records of further resources by uuid.
  std::map<std::string, json_spirit::Value> resources;
  json_spirit::Array pools;
  std::map<std::string, json_spirit::Object> jobs;  ///< Backint job records by uuid
  std::map<std::string, json_spirit::Array> files;  ///< their files
  std::vector<std::string> removed_jobs;
  std::map<Set_Key, json_spirit::Value> sets;  ///< what the search for a set finds
  std::vector<json_spirit::Object> committed;
  /// What a catalog view answers to its params; null: it refuses.
  std::function<json_spirit::Value(const std::string& view, const json_spirit::Object& params)> on_view;
  /// "view params" of every question to a view so far.
  std::vector<std::string> views;
  /// Called when a Backint job record arrives: what the Backint agent will have stored.
  std::function<void(const json_spirit::Object& job)> on_job;
  /// Called for each request first; an answer here replaces the real one.
  std::function<std::optional<net::Http_Response>(const std::string& method, const std::string& target)> intercept;

 private:
  [[nodiscard]] net::Http_Response answer(const std::string& method, const std::string& target,
                                          const json_spirit::Value& body);
  [[nodiscard]] net::Http_Response answer_job(const std::string& method, const std::string& uuid,
                                              const json_spirit::Value& body);
  [[nodiscard]] net::Http_Response answer_view(const std::string& view, const json_spirit::Value& body);
  [[nodiscard]] net::Http_Response find_resource(const std::string& query) const;
  [[nodiscard]] net::Http_Response find_set(const std::string& query) const;

  mutable std::mutex mutex_;
  std::vector<std::string> requests_;
};

/// An answer with a JSON body.
[[nodiscard]] net::Http_Response json_answer(unsigned status, const json_spirit::Value& body);
/// A refusal as backupd words it.
[[nodiscard]] net::Http_Response error_answer(unsigned status);

}  // namespace backup_test
