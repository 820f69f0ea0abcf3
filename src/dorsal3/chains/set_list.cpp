#include "dorsal3/chains/set_list.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <limits>
#include <set>

#include "dorsal3/server/resources.h"

namespace dorsal3 {

namespace {

/// One answer must stay below what a client takes, also when the sets have many files.
constexpr std::uint64_t page_rows = 500;

std::string sets_path(const std::string& resource_uuid, const std::string& database, const char* kind) {
  std::string path = "/sets?" + query_pair("resource_uuid", resource_uuid) + "&" + query_pair("type", kind);
  if (!database.empty()) path += "&" + query_pair("database", database);
  return path;
}

using Page_Is_Enough = std::function<bool(const std::vector<json_spirit::Object>& rows)>;

/// Newest first, page after page. A set committed meanwhile moves the others: what was seen already is passed over.
bool read_kind(Server_Client& server, const std::string& path, std::uint64_t limit,
               std::vector<json_spirit::Object>& sets, std::uint64_t& total, Failure& failure,
               const Page_Is_Enough& is_enough = {}) {
  std::set<std::string> seen;
  total = 1;
  for (std::uint64_t offset = 0; offset < std::min(limit, total);) {
    const std::uint64_t wanted = std::min(page_rows, limit - offset);
    std::vector<json_spirit::Object> rows;
    if (!server.get_page(
            path + "&sort=id&order=desc&limit=" + std::to_string(wanted) + "&offset=" + std::to_string(offset), rows,
            total, failure))
      return false;
    const bool enough = rows.empty() || (is_enough && is_enough(rows));
    for (auto& row : rows)
      if (seen.insert(text_member(row, "uuid")).second) sets.push_back(std::move(row));
    if (enough) break;
    offset += wanted;
  }
  return true;
}

}  // namespace

bool read_data_sets(Server_Client& server, const std::string& resource_uuid, const std::string& database,
                    std::uint64_t limit, Set_List& list, Failure& failure) {
  list = Set_List();
  // The full backups last: each delta that was seen before has its own among them.
  for (const char* kind : {kind_incremental, kind_differential, kind_full}) {
    std::uint64_t total = 0;
    if (!read_kind(server, sets_path(resource_uuid, database, kind), limit, list.sets, total, failure)) return false;
    if (total > limit) list.left_out[kind] = total - limit;
  }
  std::stable_sort(list.sets.begin(), list.sets.end(), [](const auto& left, const auto& right) {
    return number_member(left, "id") < number_member(right, "id");
  });
  return true;
}

bool read_log_sets(Server_Client& server, const std::string& resource_uuid, const std::string& database,
                   std::uint64_t backup_id, std::vector<json_spirit::Object>& sets, Failure& failure) {
  const auto is_older = [backup_id](const json_spirit::Object& set) {
    return number_member(set, "database_backup_id") < backup_id;
  };
  const auto is_enough = [&](const std::vector<json_spirit::Object>& rows) {
    return std::all_of(rows.begin(), rows.end(), is_older);
  };
  for (const char* kind : {kind_log, kind_catalog}) {
    std::uint64_t total = 0;
    if (!read_kind(server, sets_path(resource_uuid, database, kind), std::numeric_limits<std::uint64_t>::max(), sets,
                   total, failure, is_enough))
      return false;
  }
  return true;
}

bool count_sets(Server_Client& server, const std::string& resource_uuid, const std::string& database, const char* kind,
                std::uint64_t& count, Failure& failure) {
  std::vector<json_spirit::Object> rows;
  return server.get_page(sets_path(resource_uuid, database, kind) + "&limit=1", rows, count, failure);
}

}  // namespace dorsal3
