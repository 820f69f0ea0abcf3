#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "backupd/outcome.h"
#include "backupd/store/database.h"
#include "backupd/store/list_query.h"
#include "json/value.h"

namespace backupd {

/// A storage pool: a directory that agents reach themselves (url "file:///dir"), or one that this server serves (url
/// empty, `directory` set). Format: docs/formats/pool.md.
struct Pool {
  std::string uuid;
  std::string name;
  std::string host_uuid;  ///< where a file:// pool lies; empty: the same path on every host
  std::string url;
  std::string directory;
  std::int64_t max_bytes = 0;  ///< of a served pool; 0: as much as the disk holds

  [[nodiscard]] bool served() const { return url.empty(); }
  /// Reads a request's body and checks it.
  [[nodiscard]] Outcome read(const json_spirit::Object& body);
  [[nodiscard]] bool operator==(const Pool&) const = default;
};

/// The pools. Safe from any thread.
class Pool_Store {
 public:
  /// `public_url`: what agents put before "/q5/pools/". `own_host_uuid`: of the host this server runs on; may be empty.
  Pool_Store(Database& database, std::string public_url, std::string own_host_uuid)
      : database_(database), own_host_uuid_(std::move(own_host_uuid)), public_url_(std::move(public_url)) {}

  /// Stores `pool`, with a new uuid when it has none, and makes its directory when this server serves it. The same pool
  /// again is answered as done; a conflict is another one with its name or uuid, or one whose directory meets its own.
  [[nodiscard]] Outcome add(Pool& pool);
  [[nodiscard]] bool find(const std::string& uuid, std::optional<Pool>& pool);
  [[nodiscard]] bool all(std::vector<Pool>& pools);
  /// Empty texts match all.
  [[nodiscard]] bool list(const std::string& uuid, const std::string& name, List_Query query, List_Page& page);

  /// The record as requests see it: with the url by which agents reach it.
  [[nodiscard]] json_spirit::Object to_json(const Pool& pool) const;
  [[nodiscard]] std::string url_of(const Pool& pool) const;
  /// The port is known only once the server listens.
  void public_url(std::string url);

 private:
  /// Nothing when the pools are no longer those of `known`.
  [[nodiscard]] std::optional<Outcome> insert(Pool& pool, const std::vector<Pool>& known);

  Database& database_;
  const std::string own_host_uuid_;
  mutable std::mutex url_mutex_;
  std::string public_url_;  ///< by url_mutex_
};

}  // namespace backupd
