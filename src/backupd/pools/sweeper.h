#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "backupd/jobs/activity_store.h"
#include "backupd/outcome.h"
#include "backupd/pools/pool_storage.h"
#include "backupd/pools/pool_store.h"
#include "backupd/store/database.h"

namespace backupd {

/// A directory on a pool that holds the objects of one backup: "<host uuid>/<landscape id>/<database>/<backup id>",
/// each of them as the directory is called (records/dataset_directory.h).
struct Dataset {
  std::string pool_uuid;
  std::string host_uuid;
  std::string landscape_id;
  std::string database;
  std::string backup_id;

  /// Every part names one directory, so that the path leads nowhere else.
  [[nodiscard]] bool sound() const;
  [[nodiscard]] std::string path() const { return host_uuid + "/" + landscape_id + "/" + database + "/" + backup_id; }
};

struct Sweep_Result {
  std::int64_t jobs = 0;             ///< Backint job records removed
  std::int64_t files = 0;            ///< file records removed
  std::int64_t datasets = 0;         ///< directories removed
  std::vector<std::string> skipped;  ///< pools that were not looked through, and why

  void add(const Sweep_Result& other) {
    jobs += other.jobs;
    files += other.files;
    datasets += other.datasets;
    skipped.insert(skipped.end(), other.skipped.begin(), other.skipped.end());
  }
};

/// Removes what runs left behind that ended without their set: Backint job records with their files, and dataset
/// directories that no record owns, on pools that this server serves or that lie on its own host. A directory counts
/// only when it is four levels deep, begins with a host that this server knows, and ends with a number, and when its
/// database's name was not cut, for then nobody can tell whose it is. One that an object is still on its way into is
/// left, and looked at again with the next run that ends. A pool whose directory meets another pool's, as former
/// versions took them, is not looked through. Any thread.
class Sweeper {
 public:
  Sweeper(Database& database, Pool_Store& pools, Pool_Storage& storage, std::string own_host_uuid)
      : database_(database), pools_(pools), storage_(storage), own_host_uuid_(std::move(own_host_uuid)) {}

  /// After the run `job_act_id` has ended.
  [[nodiscard]] Outcome sweep_run(const std::string& job_act_id, Sweep_Result& result);
  /// Records of backups that HANA began by itself whose calls ended without their last object, see
  /// ondemand_records.h: a run is owed to what was saved (`queued` tells how many), what holds nothing goes.
  [[nodiscard]] Outcome sweep_abandoned(Sweep_Result& result, std::int64_t& queued);
  /// All ended runs, what was abandoned, then every pool that can be reached.
  [[nodiscard]] Outcome sweep_all(Activity_Store& activities, Sweep_Result& result);

 private:
  [[nodiscard]] bool remove_empty(Sql_Session& session, const std::string& job_uuid, std::vector<Dataset>& datasets);
  bool remove_records(const std::string& job_act_id, Sweep_Result& result, std::vector<Dataset>& datasets);
  [[nodiscard]] Outcome sweep_datasets(const std::vector<Dataset>& datasets, Sweep_Result& result);
  void sweep_dataset(const Pool& pool, const Dataset& dataset, Sweep_Result& result);
  void put_off(const Dataset& dataset);
  void sweep_pool(const Pool& pool, Sweep_Result& result);
  /// False, with a line in `result`, for a pool that meets another of `pools`.
  [[nodiscard]] bool lies_apart(const Pool& pool, const std::vector<Pool>& pools, Sweep_Result& result);
  /// By a record of any pool.
  [[nodiscard]] bool is_owned(const Dataset& dataset, bool& owned);
  [[nodiscard]] bool is_known_host(const std::string& host_uuid);
  [[nodiscard]] bool is_local(const Pool& pool) const;

  Database& database_;
  Pool_Store& pools_;
  Pool_Storage& storage_;
  const std::string own_host_uuid_;
  std::mutex mutex_;
  std::vector<Dataset> put_off_;  ///< guarded by mutex_
};

}  // namespace backupd
