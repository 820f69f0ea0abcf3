#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "json/value.h"
#include "net/http_server.h"

namespace support {

/// What the Backint agent needs of backupd, in memory: Backint job and file records, and one storage pool. Serves a
/// Fake_Http_Transport or a real Http_Server. Safe for several threads.
class Memory_Backupd : public net::Http_Handler {
 public:
  explicit Memory_Backupd(std::string access_key) : access_key_(std::move(access_key)) {}

  static constexpr const char* pool_path = "/q5/pools/11111111-2222-3333-4444-555555555555";

  /// `record` has "uuid", "host_uuid", "sid", "database" and what else the agent reads.
  void add_job(const json_spirit::Object& record);
  [[nodiscard]] json_spirit::Object job(const std::string& uuid) const;
  /// All job records, by uuid.
  [[nodiscard]] std::vector<json_spirit::Object> jobs() const;
  /// File records, oldest first.
  [[nodiscard]] std::vector<json_spirit::Object> files() const;
  /// Jobs whose last file record came, once for each such request.
  [[nodiscard]] std::vector<std::string> completed_jobs() const;
  /// A restore from a database into another of the same system goes on.
  void begin_restore(const std::string& origin, const std::string& target, const std::string& run = "act-2");
  /// A restore of a database from a system of the same names, which has these hosts.
  void begin_restore_from_namesake(const std::string& database, const std::vector<std::string>& origin_hosts);
  /// Reports of what was restored, as they came.
  [[nodiscard]] std::vector<json_spirit::Object> restored() const;
  /// Waits for the first of them.
  void wait_until_restored();
  /// Changes one key of the record of an EBID.
  void change_file(const std::string& ebid, const std::string& key, const json_spirit::Value& value);
  /// A kept backup set holds the file of this EBID: it cannot be deleted.
  void hold(const std::string& ebid);
  /// New file records are refused with 422.
  void refuse_files(bool refuse);
  /// PUT answers 507.
  void fill_pool(bool full);
  /// Objects of the pool by path.
  [[nodiscard]] std::map<std::string, std::string> objects() const;

  void handle(net::Server_Exchange& exchange) override;
  Serve accept_web_socket(const std::string& target, const net::Http_Headers& headers, unsigned& status) override;

 private:
  void handle_records(net::Server_Exchange& exchange, const std::string& path,
                      const std::map<std::string, std::string>& query);
  void handle_job(net::Server_Exchange& exchange, const std::string& uuid, bool of_files);
  void list_restores(net::Server_Exchange& exchange, const std::map<std::string, std::string>& query);
  void add_restored(net::Server_Exchange& exchange);
  void add_ondemand_job(net::Server_Exchange& exchange);
  void list_files(net::Server_Exchange& exchange, const std::map<std::string, std::string>& query);
  void delete_file(net::Server_Exchange& exchange, std::uint64_t id);
  void add_files(net::Server_Exchange& exchange, const json_spirit::Object& job);
  void handle_pool(net::Server_Exchange& exchange, const std::string& path, bool list);
  void store(net::Server_Exchange& exchange, const std::string& path);
  void list(net::Server_Exchange& exchange, const std::string& directory);

  const std::string access_key_;
  mutable std::mutex mutex_;
  std::map<std::string, json_spirit::Object> jobs_;  // guarded by mutex_, as all below
  std::vector<json_spirit::Object> files_;
  std::vector<std::string> completed_jobs_;
  std::map<std::string, std::pair<std::string, std::string>> restores_;  // origins and runs by targets
  std::map<std::string, std::vector<std::string>> origin_hosts_;         // by targets
  std::vector<json_spirit::Object> restored_;
  std::condition_variable restored_changed_;
  std::map<std::string, std::string> objects_;
  std::set<std::string> held_;
  std::uint64_t last_id_ = 0;
  bool refuse_files_ = false;
  bool pool_full_ = false;
};

}  // namespace support
