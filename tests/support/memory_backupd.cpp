#include "support/memory_backupd.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "net/http_string.h"

namespace support {

namespace {

using json_spirit::Object;
using json_spirit::Value;

/// One backup that HANA began by itself.
constexpr const char* ondemand_key[] = {"host_uuid", "sid", "database", "database_backup_id", "type", "job_act_id"};

std::string text_of(const Object& object, const char* key) {
  std::string text;
  json_spirit::object_get(object, key, text);
  return text;
}

std::map<std::string, std::string> read_query(std::string_view query) {
  std::map<std::string, std::string> pairs;
  while (!query.empty()) {
    const std::size_t end = std::min(query.find('&'), query.size());
    const std::string_view pair = query.substr(0, end);
    const std::size_t equals = std::min(pair.find('='), pair.size());
    const std::string_view value = pair.substr(std::min(equals + 1, pair.size()));
    pairs[http_decode_string(pair.substr(0, equals), true)] = http_decode_string(value, true);
    query.remove_prefix(std::min(end + 1, query.size()));
  }
  return pairs;
}

void answer(net::Server_Exchange& exchange, unsigned status, const Value& body) {
  net::Http_Response response;
  response.status = status;
  response.body = json_spirit::dump_json(body);
  exchange.respond(response);
}

void refuse(net::Server_Exchange& exchange, unsigned status, const char* code, const std::string& message) {
  answer(exchange, status, Object{{"error", Object{{"code", code}, {"message", message}}}});
}

struct Text_Sink : net::Body_Sink {
  bool write(const char* data, std::size_t size) override {
    text.append(data, size);
    return true;
  }
  std::string text;
};

class Text_Source : public net::Body_Source {
 public:
  explicit Text_Source(std::string text) : text_(std::move(text)) {}
  ssize_t read(char* buffer, std::size_t size) override {
    const std::size_t count = std::min(size, text_.size() - at_);
    std::memcpy(buffer, text_.data() + at_, count);
    at_ += count;
    return static_cast<ssize_t>(count);
  }
  [[nodiscard]] std::optional<std::uint64_t> size() const override { return text_.size(); }

 private:
  std::string text_;
  std::size_t at_ = 0;
};

}  // namespace

void Memory_Backupd::add_job(const Object& record) {
  const std::lock_guard<std::mutex> guard(mutex_);
  jobs_[text_of(record, "uuid")] = record;
}

Object Memory_Backupd::job(const std::string& uuid) const {
  const std::lock_guard<std::mutex> guard(mutex_);
  const auto found = jobs_.find(uuid);
  return found == jobs_.end() ? Object() : found->second;
}

std::vector<Object> Memory_Backupd::files() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return files_;
}

std::vector<std::string> Memory_Backupd::completed_jobs() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return completed_jobs_;
}

void Memory_Backupd::begin_restore(const std::string& origin, const std::string& target, const std::string& run) {
  const std::lock_guard<std::mutex> guard(mutex_);
  restores_[target] = {origin, run};
}

void Memory_Backupd::begin_restore_from_namesake(const std::string& database,
                                                 const std::vector<std::string>& origin_hosts) {
  begin_restore(database, database);
  const std::lock_guard<std::mutex> guard(mutex_);
  origin_hosts_[database] = origin_hosts;
}

void Memory_Backupd::list_restores(net::Server_Exchange& exchange, const std::map<std::string, std::string>& query) {
  json_spirit::Array rows;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    const std::string& database = query.at("database");
    for (const auto& [target, restore] : restores_)
      if (target == database || restore.first == database) {
        Object row{{"job_act_id", restore.second},
                   {"origin_sid", query.at("sid")},
                   {"origin_database", restore.first},
                   {"target_sid", query.at("sid")},
                   {"target_database", target}};
        if (const auto hosts = origin_hosts_.find(target); hosts != origin_hosts_.end())
          row["origin_hosts"] = json_spirit::Array(hosts->second.begin(), hosts->second.end());
        rows.emplace_back(std::move(row));
      }
  }
  answer(exchange, 200, Object{{"total", rows.size()}, {"rows", rows}});
}

std::vector<Object> Memory_Backupd::restored() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return restored_;
}

void Memory_Backupd::wait_until_restored() {
  std::unique_lock<std::mutex> lock(mutex_);
  restored_changed_.wait(lock, [this] { return !restored_.empty(); });
}

void Memory_Backupd::change_file(const std::string& ebid, const std::string& key, const Value& value) {
  const std::lock_guard<std::mutex> guard(mutex_);
  for (Object& file : files_) {
    if (text_of(file, "extern_backup_id") == ebid) file[key] = value;
  }
}

void Memory_Backupd::hold(const std::string& ebid) {
  const std::lock_guard<std::mutex> guard(mutex_);
  held_.insert(ebid);
}

void Memory_Backupd::refuse_files(bool refuse) {
  const std::lock_guard<std::mutex> guard(mutex_);
  refuse_files_ = refuse;
}

void Memory_Backupd::fill_pool(bool full) {
  const std::lock_guard<std::mutex> guard(mutex_);
  pool_full_ = full;
}

std::map<std::string, std::string> Memory_Backupd::objects() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return objects_;
}

net::Http_Handler::Serve Memory_Backupd::accept_web_socket(const std::string&, const net::Http_Headers&,
                                                           unsigned& status) {
  status = 404;
  return {};
}

void Memory_Backupd::handle(net::Server_Exchange& exchange) {
  const std::string* authorization = exchange.headers().find("Authorization");
  if (authorization == nullptr || *authorization != "Bearer " + access_key_) {
    return refuse(exchange, 401, "unauthorized", "the key is not known");
  }
  const std::string& target = exchange.target();
  const std::size_t mark = std::min(target.find('?'), target.size());
  const std::string path = http_decode_string(target.substr(0, mark));
  const auto query = read_query(std::string_view(target).substr(std::min(mark + 1, target.size())));
  const std::string pool = pool_path;
  if (path.starts_with(pool)) {
    std::string rest = path.substr(pool.size());
    while (rest.starts_with('/')) rest.erase(0, 1);
    return handle_pool(exchange, rest, query.contains("list"));
  }
  const std::string base = "/q5/r/v2/";
  if (path.starts_with(base)) return handle_records(exchange, path.substr(base.size()), query);
  refuse(exchange, 404, "not_found", "no such route");
}

void Memory_Backupd::handle_records(net::Server_Exchange& exchange, const std::string& path,
                                    const std::map<std::string, std::string>& query) {
  const std::string jobs = "backint/jobs/";
  const std::string files = "backint/files";
  const std::string& method = exchange.method();
  if (path == "server") {
    return answer(exchange, 200, Object{{"product", "Dorsal3"}, {"version", "1"}, {"time", "2026-01-01 00:00:00"}});
  }
  if (path.starts_with(jobs)) {
    const std::string rest = path.substr(jobs.size());
    const std::size_t slash = std::min(rest.find('/'), rest.size());
    return handle_job(exchange, rest.substr(0, slash), rest.substr(slash) == "/files");
  }
  if (path == "backint/on-demand-jobs" && method == "POST") return add_ondemand_job(exchange);
  if (path == "backint/restores" && method == "GET") return list_restores(exchange, query);
  if (path == "backint/restored" && method == "POST") return add_restored(exchange);
  if (path == files && method == "GET") return list_files(exchange, query);
  if (path.starts_with(files + "/") && method == "DELETE") {
    return delete_file(exchange, std::stoull(path.substr(files.size() + 1)));
  }
  refuse(exchange, 404, "not_found", "no such route");
}

void Memory_Backupd::handle_job(net::Server_Exchange& exchange, const std::string& uuid, bool of_files) {
  const Object record = job(uuid);
  if (record.empty()) return refuse(exchange, 404, "not_found", "no Backint job " + uuid);
  if (of_files && exchange.method() == "POST") return add_files(exchange, record);
  if (exchange.method() == "GET") return answer(exchange, 200, record);
  std::string body;
  Value change;
  if (!exchange.read_body(body) || !json_spirit::load_json(body, change)) {
    return refuse(exchange, 400, "bad_request", "no JSON");
  }
  unsigned long wanted = 0;
  unsigned long known = 0;
  json_spirit::object_get(change.get_obj(), "database_backup_id", wanted);
  json_spirit::object_get(record, "database_backup_id", known);
  if (known != 0 && known != wanted) return refuse(exchange, 409, "conflict", "another backup id is set");
  Object changed = record;
  changed["database_backup_id"] = wanted;
  add_job(changed);
  answer(exchange, 200, changed);
}

void Memory_Backupd::add_ondemand_job(net::Server_Exchange& exchange) {
  std::string body;
  Value document;
  if (!exchange.read_body(body) || !json_spirit::load_json(body, document)) {
    return refuse(exchange, 400, "bad_request", "no JSON");
  }
  const Object& record = document.get_obj();
  const std::lock_guard<std::mutex> guard(mutex_);
  for (const auto& entry : jobs_) {
    const Object& known = entry.second;
    const bool same = std::all_of(std::begin(ondemand_key), std::end(ondemand_key), [&](const char* key) {
      const Value* left = known.find(key);
      const Value* right = record.find(key);
      return left != nullptr && right != nullptr && *left == *right;
    });
    if (same) return answer(exchange, 200, known);
  }
  jobs_[text_of(record, "uuid")] = record;
  answer(exchange, 201, record);
}

void Memory_Backupd::add_restored(net::Server_Exchange& exchange) {
  std::string body;
  Value report;
  if (!exchange.read_body(body) || !json_spirit::load_json(body, report)) {
    return refuse(exchange, 400, "bad_request", "no JSON");
  }
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    restored_.push_back(report.get_obj());
    restored_changed_.notify_all();
  }
  answer(exchange, 200, Object{{"job_act_id", "act-2"}});
}

std::vector<Object> Memory_Backupd::jobs() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  std::vector<Object> all;
  for (const auto& [uuid, record] : jobs_) all.push_back(record);
  return all;
}

void Memory_Backupd::add_files(net::Server_Exchange& exchange, const Object& job) {
  std::string body;
  Value document;
  if (!exchange.read_body(body) || !json_spirit::load_json(body, document)) {
    return refuse(exchange, 400, "bad_request", "no JSON");
  }
  const std::lock_guard<std::mutex> guard(mutex_);
  if (refuse_files_) return refuse(exchange, 422, "invalid", "file records are refused");
  for (const Value& row : document.get_obj().find("files")->get_array()) {
    Object file = row.get_obj();
    const bool known = std::any_of(files_.begin(), files_.end(), [&](const Object& other) {
      return text_of(other, "extern_backup_id") == text_of(file, "extern_backup_id");
    });
    if (known) continue;
    file["id"] = ++last_id_;
    for (const char* key : {"host_uuid", "sid", "database"}) file[key] = text_of(job, key);
    files_.push_back(std::move(file));
  }
  bool last = false;
  if (json_spirit::object_get(document.get_obj(), "last", last) && last)
    completed_jobs_.push_back(text_of(job, "uuid"));
  answer(exchange, 201, Object{});
}

void Memory_Backupd::list_files(net::Server_Exchange& exchange, const std::map<std::string, std::string>& query) {
  json_spirit::Array rows;
  const std::lock_guard<std::mutex> guard(mutex_);
  for (auto file = files_.rbegin(); file != files_.rend(); ++file) {
    const bool fits = std::all_of(query.begin(), query.end(), [&](const auto& pair) {
      return pair.first == "limit" || pair.first == "offset" || text_of(*file, pair.first.c_str()) == pair.second;
    });
    Object row = *file;
    row.erase("host_uuid");
    if (fits) rows.emplace_back(row);
  }
  answer(exchange, 200, Object{{"total", rows.size()}, {"rows", rows}});
}

void Memory_Backupd::delete_file(net::Server_Exchange& exchange, std::uint64_t id) {
  const std::lock_guard<std::mutex> guard(mutex_);
  const auto found = std::find_if(files_.begin(), files_.end(), [id](const Object& file) {
    unsigned long own = 0;
    return json_spirit::object_get(file, "id", own) && own == id;
  });
  if (found == files_.end()) return refuse(exchange, 404, "not_found", "no such file record");
  if (held_.contains(text_of(*found, "extern_backup_id"))) {
    return refuse(exchange, 409, "conflict", "a kept backup set holds it");
  }
  files_.erase(found);
  answer(exchange, 200, Object{});
}

void Memory_Backupd::handle_pool(net::Server_Exchange& exchange, const std::string& path, bool list_wanted) {
  const std::string& method = exchange.method();
  if (list_wanted) return list(exchange, path);
  if (method == "PUT") return store(exchange, path);
  std::string content;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto found = objects_.find(path);
    const bool directory = std::any_of(objects_.begin(), objects_.end(),
                                       [&](const auto& object) { return object.first.starts_with(path + "/"); });
    if (found == objects_.end()) {
      return directory ? refuse(exchange, 409, "conflict", "the directory is not empty")
                       : refuse(exchange, 404, "not_found", "no such object");
    }
    content = found->second;
    if (method == "DELETE") objects_.erase(found);
  }
  if (method == "DELETE") return answer(exchange, 200, Object{});
  net::Http_Response head;
  head.status = 200;
  if (method == "HEAD") {
    head.headers.set("Content-Length", std::to_string(content.size()));
    return exchange.respond(head);
  }
  Text_Source body(std::move(content));
  exchange.respond(head, body);
}

void Memory_Backupd::store(net::Server_Exchange& exchange, const std::string& path) {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (pool_full_) return refuse(exchange, 507, "pool_full", "the storage pool is full");
  }
  Text_Sink body;
  if (!exchange.read_body(body)) return refuse(exchange, 400, "bad_request", "the body was cut");
  const std::lock_guard<std::mutex> guard(mutex_);
  const bool stored = objects_.emplace(path, std::move(body.text)).second;
  if (!stored) return refuse(exchange, 409, "conflict", "the object exists");
  answer(exchange, 201, Object{});
}

void Memory_Backupd::list(net::Server_Exchange& exchange, const std::string& directory) {
  const std::string prefix = directory.empty() ? std::string() : directory + "/";
  std::map<std::string, Object> entries;
  const std::lock_guard<std::mutex> guard(mutex_);
  for (const auto& [path, content] : objects_) {
    if (!path.starts_with(prefix)) continue;
    const std::string rest = path.substr(prefix.size());
    const std::size_t slash = rest.find('/');
    const std::string name = rest.substr(0, slash);
    const bool below = slash != std::string::npos;
    entries[name] = Object{{"name", name}, {"directory", below}, {"size", below ? 0 : content.size()}};
  }
  if (entries.empty() && !directory.empty()) return refuse(exchange, 404, "not_found", "no such directory");
  json_spirit::Array rows;
  for (const auto& [name, entry] : entries) rows.emplace_back(entry);
  answer(exchange, 200, Object{{"total", rows.size()}, {"rows", rows}});
}

}  // namespace support
