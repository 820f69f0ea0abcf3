#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "backupd/store/database.h"

namespace fuzz {

inline constexpr char host_uuid[] = "11111111-1111-4111-8111-111111111111";

/// A request as seeds write it: "<role> <METHOD> <path>", a line end, the body.
struct Rest_Request {
  std::string role;  ///< "agent" or "operator"
  std::string method;
  std::string path;
  std::string body;
};

[[nodiscard]] Rest_Request request_of(std::string_view line, std::string body);

/// A route's pattern with names of what the stock holds for its parameters.
[[nodiscard]] std::vector<std::string> paths_of(const std::string& pattern);

/// What a server has that has been at work: a pool, a system over two hosts, backups with their records and sets, log
/// backups that wait, and definitions of each kind.
void make_stock(const std::function<void(const Rest_Request&)>& ask);
/// The server has named the system itself; from here on it has the uuid that requests give.
void name_resource(backupd::Database& database);

/// Paths whose lists show everything that bodies can store.
inline constexpr const char* lists[] = {"/q5/r/v2/hosts",         "/q5/r/v2/resources",
                                        "/q5/r/v2/pools",         "/q5/r/v2/backint/jobs",
                                        "/q5/r/v2/backint/files", "/q5/r/v2/backint/ondemand-runs",
                                        "/q5/r/v2/sets",          "/q5/r/v2/sets/restore/sets",
                                        "/q5/r/v2/alerts",        "/q5/r/v2/job-definitions",
                                        "/q5/r/v2/jobs",          "/q5/r/v2/audit"};

}  // namespace fuzz
