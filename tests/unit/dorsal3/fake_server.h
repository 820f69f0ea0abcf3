#pragma once

#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "json/value.h"
#include "net/http_server.h"

/// backupd as the command sees it: answers by "METHOD /path", several answers in turn, the last one for ever; what has
/// no answer is 404. Remembers the bodies that were posted.
class Fake_Server : public net::Http_Handler {
 public:
  void answer(const std::string& request, const std::string& body, unsigned status = 200);
  /// Backup sets to be listed: "GET /sets?..." takes resource_uuid, type, database, limit, offset and order.
  void keep_sets(std::vector<json_spirit::Object> sets);
  /// What was said so far of one request does not hold any more.
  void forget(const std::string& request);
  [[nodiscard]] std::vector<std::string> bodies(const std::string& request) const;
  [[nodiscard]] std::size_t count(const std::string& request) const { return bodies(request).size(); }

  void handle(net::Server_Exchange& exchange) override;
  Serve accept_web_socket(const std::string& target, const net::Http_Headers& headers, unsigned& status) override;

  static constexpr const char* key = "operators-key";

 private:
  struct Answer {
    unsigned status;
    std::string body;
  };
  [[nodiscard]] std::string list_sets(const std::string& query) const;

  mutable std::mutex mutex_;
  std::vector<json_spirit::Object> sets_;
  bool lists_sets_ = false;
  std::map<std::string, std::deque<Answer>> answers_;
  std::map<std::string, std::vector<std::string>> bodies_;
};
