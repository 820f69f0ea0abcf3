#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "backupd/identity.h"
#include "backupd/outcome.h"
#include "backupd/store/list_query.h"
#include "json/value.h"
#include "net/http_server.h"

namespace backupd {

/// One request, taken apart.
struct Request {
  Identity identity;
  std::vector<std::string> parameters;  ///< what stood for the pattern's "<...>", decoded, in order
  std::map<std::string, std::string> query;
  json_spirit::Object body;

  [[nodiscard]] std::string parameter(std::string_view key) const {
    const auto found = query.find(std::string(key));
    return found == query.end() ? std::string() : found->second;
  }
};

/// What a JSON route answers.
struct Reply {
  unsigned status = 200;
  json_spirit::Value body;

  Reply(json_spirit::Value value, unsigned code = 200) : status(code), body(std::move(value)) {}
  /// The refusal as an error document.
  Reply(const Outcome& refusal);
  /// {"total", "rows"}
  Reply(List_Page page);
};

using Json_Handler = std::function<Reply(Request&)>;
/// Reads and answers the exchange itself.
using Stream_Handler = std::function<void(Request&, net::Server_Exchange&)>;

enum class Body { none, json };

struct Route {
  std::string method;
  std::string pattern;  ///< "/q5/r/v2/sets", "<name>" for one segment, a last "<name...>" for all that follow
  unsigned roles = 0;
  std::vector<std::string> query_keys;
  Body body = Body::none;
  Json_Handler json;
  Stream_Handler stream;
};

constexpr unsigned all_roles = role_agent | role_viewer | role_operator;
constexpr unsigned reader_roles = role_viewer | role_operator;

/// The one table of what the server answers, and to whom. Filled before it serves, read-only then.
class Router {
 public:
  void add(Route route);
  [[nodiscard]] const std::vector<Route>& routes() const { return routes_; }

  /// The route for a method and a path's decoded segments; null with `allowed` holding the methods the path has (none:
  /// there is no such path).
  [[nodiscard]] const Route* find(const std::string& method, const std::vector<std::string>& segments,
                                  std::vector<std::string>& parameters, std::vector<std::string>& allowed) const;

 private:
  std::vector<Route> routes_;
};

/// A request's target taken apart. False when a percent sequence is broken, a query key comes twice, or it is no path.
struct Target {
  std::vector<std::string> segments;
  std::map<std::string, std::string> query;
  [[nodiscard]] bool parse(const std::string& target);
};

/// The keys every list understands.
extern const std::vector<std::string> list_keys;
[[nodiscard]] std::vector<std::string> with_list_keys(std::vector<std::string> keys);

/// Reads limit, offset, sort and order into `query`. `sorts`: the words that "sort" may hold and their columns; the
/// first is the default.
[[nodiscard]] Outcome read_list_query(const Request& request,
                                      const std::vector<std::pair<std::string, std::string>>& sorts, List_Query& query);

}  // namespace backupd
