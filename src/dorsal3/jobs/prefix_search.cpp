#include "dorsal3/jobs/prefix_search.h"

#include <algorithm>

#include "dorsal3/server/resources.h"

namespace dorsal3 {

namespace {

constexpr std::uint64_t page_rows = 1000;
constexpr std::size_t uuid_length = 36;
constexpr std::size_t shown_matches = 5;

/// What is looked for, and in which list.
struct Search {
  const char* list;  ///< path of the list; takes limit, offset and order
  const char* key;
  const char* what;  ///< for messages
};

constexpr Search search_runs{"/jobs", "id", "run"};
constexpr Search search_sets{"/sets", "uuid", "backup set"};

Failure not_found(const Search& search, const std::string& typed, bool all_seen) {
  std::string message = std::string("there is no ") + search.what + " \"" + typed + "\"";
  if (!all_seen) message += " among the newest " + std::to_string(search_limit) + "; give the whole id of an older one";
  return {exit_not_found, "not_found", message};
}

Failure ambiguous(const Search& search, const std::string& typed, const std::vector<std::string>& matches) {
  std::string list;
  for (std::size_t i = 0; i < std::min(matches.size(), shown_matches); ++i) list += (i == 0 ? "" : ", ") + matches[i];
  if (matches.size() > shown_matches) list += ", ...";
  return {exit_usage, "usage",
          "\"" + typed + "\" is the beginning of more than one " + search.what + ", give more of it: " + list};
}

bool find_by_prefix(Server_Client& server, const Search& search, const std::string& typed, std::string& id,
                    Failure& failure) {
  std::vector<std::string> matches;
  std::uint64_t offset = 0;
  std::uint64_t total = 1;
  for (; offset < std::min(total, search_limit); offset += page_rows) {
    std::vector<json_spirit::Object> rows;
    const std::string path = std::string(search.list) + "?order=desc&limit=" + std::to_string(page_rows) +
                             "&offset=" + std::to_string(offset);
    if (!server.get_page(path, rows, total, failure)) return false;
    for (const auto& row : rows) {
      std::string known = text_member(row, search.key);
      // A row that came between two pages may be seen twice.
      if (known.starts_with(typed) && std::find(matches.begin(), matches.end(), known) == matches.end())
        matches.push_back(std::move(known));
    }
  }
  if (matches.size() == 1) {
    id = matches.front();
    return true;
  }
  failure = matches.empty() ? not_found(search, typed, total <= search_limit) : ambiguous(search, typed, matches);
  return false;
}

bool is_no_id(const Search& search, const std::string& typed, Failure& failure) {
  if (!typed.empty()) return false;
  failure = {exit_usage, "usage", std::string("the id of the ") + search.what + " is empty"};
  return true;
}

}  // namespace

bool find_run(Server_Client& server, const std::string& typed, json_spirit::Object& record, Failure& failure) {
  if (is_no_id(search_runs, typed, failure)) return false;
  if (server.get("/jobs/" + path_segment(typed), record, failure)) return true;
  if (failure.exit_code != exit_not_found || typed.size() >= uuid_length) return false;
  std::string id;
  return find_by_prefix(server, search_runs, typed, id, failure) && server.get("/jobs/" + id, record, failure);
}

bool find_set(Server_Client& server, const std::string& typed, std::string& uuid, Failure& failure) {
  if (is_no_id(search_sets, typed, failure)) return false;
  uuid = typed;
  return typed.size() >= uuid_length || find_by_prefix(server, search_sets, typed, uuid, failure);
}

}  // namespace dorsal3
