#include "backupd/pools/pool_store.h"

#include <algorithm>

#include "backupd/http/body_reader.h"
#include "backupd/pools/pool_place.h"
#include "backupd/pools/pool_storage.h"
#include "scrt/uuid.h"

namespace backupd {

namespace {

constexpr char file_scheme[] = "file://";
constexpr char pool_columns[] = "uuid, name, host_uuid, url, directory, max_bytes";
constexpr std::size_t pool_column_count = 6;

Pool pool_of(const Sql_Row& row) {
  return {row.text(0), row.text(1), row.text(2), row.text(3), row.text(4), row.number(5)};
}

/// Absolute, and not the root of everything.
bool is_usable_directory(const std::string& path) {
  const std::string framed = path + "/";
  const bool names_one = path.find_first_not_of("/.") != std::string::npos;
  return names_one && path.front() == '/' && framed.find("/../") == std::string::npos;
}

std::vector<Pool> all_pools(Sql_Session& session) {
  std::vector<Pool> pools;
  for (const Sql_Row& row :
       session.query(std::string("SELECT ") + pool_columns + " FROM pools ORDER BY name", {}, pool_column_count))
    pools.push_back(pool_of(row));
  return pools;
}

Outcome store_failed() { return Outcome::refuse(Outcome::internal, "the pool cannot be stored; see the server's log"); }

}  // namespace

Outcome Pool::read(const json_spirit::Object& body) {
  Body_Reader reader(body, "the pool");
  reader.uuid("uuid", uuid);
  reader.text("name", name, Need::required);
  reader.uuid("host_uuid", host_uuid);
  reader.text("url", url);
  reader.text("directory", directory);
  reader.number("max_bytes", max_bytes);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  const auto refuse = [](std::string message) { return Outcome::refuse(Outcome::invalid, std::move(message)); };
  if (url.empty() == directory.empty())
    return refuse("a pool has either a \"url\" that agents reach or a \"directory\" that this server serves; give one");
  if (url.empty() && !is_usable_directory(directory))
    return refuse("the directory \"" + directory + "\" is not an absolute path; correct it");
  const std::string scheme(file_scheme);
  if (!url.empty() && (!url.starts_with(scheme) || !is_usable_directory(url.substr(scheme.size()))))
    return refuse("the url \"" + url + "\" does not read file:///<directory>; correct it");
  if (!url.empty() && max_bytes != 0)
    return refuse("\"max_bytes\" is kept only where this server serves the pool; leave it out");
  return {};
}

Outcome Pool_Store::add(Pool& pool) {
  // Outside of the transaction: a disk that hangs must not hold up what others store.
  for (;;) {
    std::vector<Pool> known;
    if (!all(known)) return store_failed();
    if (const auto overlap = find_overlap(pool, known, own_host_uuid_))
      return Outcome::refuse(Outcome::conflict,
                             "the directory " + pool_directory(pool) + " " + overlap->text() +
                                 "; two pools need directories of their own, or one removes the "
                                 "backups of the other: choose a directory apart from it, or use \"" +
                                 overlap->other.name + "\" itself");
    if (Outcome outcome = prepare_pool(pool); !outcome.ok()) return outcome;
    if (const auto outcome = insert(pool, known)) return *outcome;
  }
}

std::optional<Outcome> Pool_Store::insert(Pool& pool, const std::vector<Pool>& known) {
  Outcome outcome;
  bool changed = false;
  const bool stored = database_.write([&](Sql_Session& session) {
    changed = all_pools(session) != known && !session.failed();
    if (changed) return false;
    const auto same = std::find_if(known.begin(), known.end(),
                                   [&](const Pool& one) { return one.name == pool.name || one.uuid == pool.uuid; });
    if (same != known.end()) {
      if (pool.uuid.empty()) pool.uuid = same->uuid;
      outcome = *same == pool
                    ? Outcome{Outcome::already_done, {}}
                    : Outcome::refuse(Outcome::conflict, "another pool has the name \"" + same->name +
                                                             "\" and the uuid " + same->uuid + "; choose another name");
      return outcome.ok();
    }
    if (pool.uuid.empty()) pool.uuid = make_uuid();
    session.execute(
        "INSERT INTO pools (uuid, name, host_uuid, url, directory, max_bytes) "
        "VALUES (:a, :b, :c, :d, :e, :f)",
        {pool.uuid, pool.name, pool.host_uuid, pool.url, pool.directory, pool.max_bytes});
    return true;
  });
  if (changed) return std::nullopt;
  if (!stored && outcome.ok()) return store_failed();
  return outcome;
}

bool Pool_Store::find(const std::string& uuid, std::optional<Pool>& pool) {
  return database_.read([&](Sql_Session& session) {
    const auto row =
        session.first(std::string("SELECT ") + pool_columns + " FROM pools WHERE uuid = :a", {uuid}, pool_column_count);
    if (row) pool = pool_of(*row);
  });
}

bool Pool_Store::all(std::vector<Pool>& pools) {
  return database_.read([&](Sql_Session& session) { pools = all_pools(session); });
}

bool Pool_Store::list(const std::string& uuid, const std::string& name, List_Query query, List_Page& page) {
  query.where_given("uuid", uuid);
  query.where_given("name", name);
  return database_.read([&](Sql_Session& session) {
    page.total = count_rows(session, "pools", query);
    for (const Sql_Row& row : select_rows(session, "pools", pool_columns, pool_column_count, query))
      page.rows.emplace_back(to_json(pool_of(row)));
  });
}

json_spirit::Object Pool_Store::to_json(const Pool& pool) const {
  return {{"uuid", pool.uuid},   {"name", pool.name},           {"host_uuid", pool.host_uuid},
          {"url", url_of(pool)}, {"directory", pool.directory}, {"max_bytes", pool.max_bytes}};
}

std::string Pool_Store::url_of(const Pool& pool) const {
  if (!pool.served()) return pool.url;
  const std::lock_guard lock(url_mutex_);
  return public_url_ + "/q5/pools/" + pool.uuid;
}

void Pool_Store::public_url(std::string url) {
  const std::lock_guard lock(url_mutex_);
  public_url_ = std::move(url);
}

}  // namespace backupd
