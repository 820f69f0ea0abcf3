#include "backupd/pools/pool_inspector.h"

#include <map>

#include "backupd/jobs/run_starter.h"

namespace backupd {

namespace {

constexpr std::chrono::seconds list_timeout{120};

Pool_Storage::Path segments_of(const std::string& path) {
  Pool_Storage::Path segments;
  std::size_t begin = 0;
  while (begin <= path.size()) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    segments.push_back(path.substr(begin, end - begin));
    begin = end + 1;
  }
  return segments;
}

std::string directory_of(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

std::string name_of(const std::string& path) { return path.substr(path.rfind('/') + 1); }

}  // namespace

/// What directories hold: sizes by name.
struct Pool_Inspector::Entries {
  std::map<std::string, std::map<std::string, std::int64_t>> directories;

  void take(const std::string& directory, const json_spirit::Array& rows) {
    for (const json_spirit::Value& row : rows) {
      if (!row.is_object()) continue;
      std::string name;
      bool is_directory = false;
      long size = 0;
      json_spirit::object_get(row.get_obj(), "name", name);
      json_spirit::object_get(row.get_obj(), "directory", is_directory);
      if (!is_directory && json_spirit::object_get(row.get_obj(), "size", size)) directories[directory][name] = size;
    }
  }
};

Outcome Pool_Inspector::look(const std::string& pool_uuid, const std::string& reader_host,
                             std::vector<Object>& objects) {
  std::optional<Pool> pool;
  if (!pools_.find(pool_uuid, pool)) return Outcome::refuse(Outcome::internal, "the pools cannot be read now");
  if (!pool) return Outcome::refuse(Outcome::not_found, "the pool " + pool_uuid + " is not registered any more");
  Entries entries;
  for (const Object& object : objects) entries.directories[directory_of(object.path)];
  const bool here = pool->served() || (!own_host_uuid_.empty() && pool->host_uuid == own_host_uuid_);
  const Outcome outcome = here ? list_here(*pool, entries)
                               : list_by_agent(*pool, pool->host_uuid.empty() ? reader_host : pool->host_uuid, entries);
  if (!outcome.ok()) return outcome;
  for (Object& object : objects) {
    const auto& directory = entries.directories[directory_of(object.path)];
    const auto found = directory.find(name_of(object.path));
    object.state = found == directory.end()              ? State::missing
                   : found->second == object.stored_size ? State::present
                                                         : State::wrong_size;
    if (found != directory.end()) object.found_size = found->second;
  }
  return {};
}

Outcome Pool_Inspector::list_here(const Pool& pool, Entries& entries) {
  for (auto& [directory, names] : entries.directories) {
    json_spirit::Array rows;
    const Outcome outcome = storage_.list(pool, segments_of(directory), rows);
    // A directory that is not there holds nothing.
    if (!outcome.ok() && outcome.kind != Outcome::not_found) return outcome;
    entries.take(directory, rows);
  }
  return {};
}

Outcome Pool_Inspector::list_by_agent(const Pool& pool, const std::string& host, Entries& entries) {
  json_spirit::Array directories;
  for (const auto& [directory, names] : entries.directories) directories.emplace_back(directory);
  const JSON_RPC_Answer answer = agents_.call(
      host, "pool.list", json_spirit::Object{{"url", pools_.url_of(pool)}, {"directories", directories}}, list_timeout);
  if (!answer.ok) return refusal_of(answer);
  json_spirit::Array rows;
  if (!answer.result.is_object() || !json_spirit::object_get(answer.result.get_obj(), "directories", rows))
    return Outcome::refuse(Outcome::invalid, "the agent's answer holds no \"directories\"");
  for (const json_spirit::Value& row : rows) {
    std::string path;
    json_spirit::Array listed;
    if (!row.is_object() || !json_spirit::object_get(row.get_obj(), "path", path)) continue;
    json_spirit::object_get(row.get_obj(), "entries", listed);
    if (entries.directories.contains(path)) entries.take(path, listed);
  }
  return {};
}

const char* to_text(Pool_Inspector::State state) {
  switch (state) {
    case Pool_Inspector::State::present:
      return "present";
    case Pool_Inspector::State::missing:
      return "missing";
    case Pool_Inspector::State::wrong_size:
      return "wrong size";
    case Pool_Inspector::State::unknown:
      break;
  }
  return "unknown";
}

}  // namespace backupd
