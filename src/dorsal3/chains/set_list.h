#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "dorsal3/server/server_client.h"

namespace dorsal3 {

/// The data backup sets of a resource, as the server keeps them.
struct Set_List {
  std::vector<json_spirit::Object> sets;          ///< in the order in which they were committed
  std::map<std::string, std::uint64_t> left_out;  ///< by kind: how many older ones there are; no entry for none

  [[nodiscard]] bool is_complete(const std::string& kind) const { return !left_out.contains(kind); }
};

/// Reads the full, incremental and differential sets of a resource, of each kind the newest `limit` ones. An empty
/// `database` means all databases. A set that is committed meanwhile may be missing, its full backup is not.
[[nodiscard]] bool read_data_sets(Server_Client& server, const std::string& resource_uuid, const std::string& database,
                                  std::uint64_t limit, Set_List& list, Failure& failure);

/// Reads the sets of log and catalog backups of a database, newest first, until a page of them is older than
/// `backup_id`: all that HANA began since that backup, and some before.
[[nodiscard]] bool read_log_sets(Server_Client& server, const std::string& resource_uuid, const std::string& database,
                                 std::uint64_t backup_id, std::vector<json_spirit::Object>& sets, Failure& failure);

/// How many sets of one kind a database has.
[[nodiscard]] bool count_sets(Server_Client& server, const std::string& resource_uuid, const std::string& database,
                              const char* kind, std::uint64_t& count, Failure& failure);

/// The kinds of backup sets, as they stand in their records.
inline constexpr const char* kind_full = "full";
inline constexpr const char* kind_incremental = "incremental";
inline constexpr const char* kind_differential = "differential";
inline constexpr const char* kind_log = "log";
inline constexpr const char* kind_catalog = "catalog";

}  // namespace dorsal3
