#pragma once

#include <string>
#include <vector>

#include "backupd/outcome.h"
#include "backupd/store/database.h"
#include "backupd/store/list_query.h"
#include "json/value.h"

namespace backupd {

/// One installed instance as an agent found it.
struct Instance_Registration {
  std::string name;
  std::string type;
  std::string host_uuid;
  json_spirit::Object extended_attrs;  ///< "landscape_id" joins the hosts of one system

  /// From a request's body or an agent's list; the host is `default_host` when it names none. Keys that are not known
  /// are refused in a request.
  enum class Origin { request, agent };
  [[nodiscard]] Outcome read(const json_spirit::Object& body, const std::string& default_host, Origin origin);
};

/// Systems that can be backed up (resources) and the instances they consist of, and the hosts seen. Safe from any
/// thread.
class Resource_Store {
 public:
  explicit Resource_Store(Database& database) : database_(database) {}

  /// The same instance again is brought up to date. `resource` becomes the record of the resource it belongs to.
  [[nodiscard]] Outcome add(const Instance_Registration& instance, json_spirit::Object& resource);
  /// Empty texts match all.
  [[nodiscard]] bool list(const std::string& uuid, const std::string& name, List_Query query, List_Page& page);

  /// The hosts of a resource's instances, in the record's order; none when there is no such resource.
  [[nodiscard]] bool hosts_of(const std::string& uuid, std::vector<std::string>& hosts);
  /// Whether two hosts have instances of one resource, and of the system `sid` where that is not empty.
  [[nodiscard]] bool share_system(const std::string& host_uuid, const std::string& other_host_uuid,
                                  const std::string& sid, bool& shared);
  /// Makes a job definition one for the agent of `host_uuid`.
  [[nodiscard]] Outcome address(json_spirit::Object& definition, const std::string& host_uuid);

  /// Notes that the agent of a host is there.
  [[nodiscard]] bool see_host(const std::string& uuid, const std::string& name, const std::string& version,
                              const json_spirit::Array& modules);
  /// Notes that it was there until now; nothing for a host that was never there.
  [[nodiscard]] bool lose_host(const std::string& uuid);
  /// Whether the agent of a host was ever there.
  [[nodiscard]] bool knows_host(const std::string& uuid, bool& known);
  /// Rows: uuid, name, version, last_seen, modules.
  [[nodiscard]] bool list_hosts(const List_Query& query, List_Page& page);

 private:
  Database& database_;
};

}  // namespace backupd
