#include "backupd/pools/sweeper.h"

#include <algorithm>

#include "backupd/http/body_reader.h"
#include "backupd/log_backup/ondemand_records.h"
#include "backupd/pools/beneath.h"
#include "backupd/pools/pool_place.h"
#include "platform/log.h"
#include "records/dataset_directory.h"

namespace backupd {

namespace {

Outcome store_failed() {
  return Outcome::refuse(Outcome::internal, "the records cannot be read or written now; see the server's log");
}

bool is_backup_id(const std::string& name) {
  return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::vector<std::string> directories_in(Pool_Storage& storage, const Pool& pool, const Pool_Storage::Path& path) {
  json_spirit::Array rows;
  std::vector<std::string> names;
  if (!storage.list(pool, path, rows).ok()) return names;
  for (const json_spirit::Value& row : rows) {
    std::string name;
    bool directory = false;
    json_spirit::object_get(row.get_obj(), "name", name);
    json_spirit::object_get(row.get_obj(), "directory", directory);
    if (directory) names.push_back(name);
  }
  return names;
}

/// The directories that may hold the backup of a record, `row` from `column` on: that of its names, and the one that it
/// lies in when it was stored while these were written otherwise.
void add_datasets(const Sql_Row& row, std::size_t column, std::vector<Dataset>& datasets) {
  Dataset dataset{row.text(column), row.text(column + 1), {}, {}, row.text(column + 4)};
  for (const auto segment : {&dataset_segment, &former_dataset_segment}) {
    const std::string former = dataset.path();
    dataset.landscape_id = segment(row.text(column + 2));
    dataset.database = segment(row.text(column + 3));
    if (dataset.path() != former) datasets.push_back(dataset);
  }
}

}  // namespace

bool Dataset::sound() const {
  return is_uuid(host_uuid) && is_entry_name(landscape_id) && is_entry_name(database) && is_backup_id(backup_id) &&
         !is_cut_dataset_segment(landscape_id) && !is_cut_dataset_segment(database);
}

Outcome Sweeper::sweep_run(const std::string& job_act_id, Sweep_Result& result) {
  if (job_act_id.empty()) return {};
  std::vector<Dataset> datasets;
  if (!remove_records(job_act_id, result, datasets)) return store_failed();
  {
    const std::lock_guard lock(mutex_);
    datasets.insert(datasets.end(), put_off_.begin(), put_off_.end());
    put_off_.clear();
  }
  return sweep_datasets(datasets, result);
}

Outcome Sweeper::sweep_datasets(const std::vector<Dataset>& datasets, Sweep_Result& result) {
  for (const Dataset& dataset : datasets) {
    std::optional<Pool> pool;
    if (!pools_.find(dataset.pool_uuid, pool)) return store_failed();
    if (pool && is_local(*pool)) sweep_dataset(*pool, dataset, result);
  }
  return {};
}

void Sweeper::put_off(const Dataset& dataset) {
  constexpr std::size_t limit = 1000;
  const std::lock_guard lock(mutex_);
  const bool known = std::any_of(put_off_.begin(), put_off_.end(), [&](const Dataset& one) {
    return one.pool_uuid == dataset.pool_uuid && one.path() == dataset.path();
  });
  if (!known && put_off_.size() < limit) put_off_.push_back(dataset);
}

bool Sweeper::remove_records(const std::string& job_act_id, Sweep_Result& result, std::vector<Dataset>& datasets) {
  Sweep_Result removed;
  const bool done = database_.write([&](Sql_Session& session) {
    for (const Sql_Row& row : session.query("SELECT uuid, pool_uuid, host_uuid, landscape_id, database_name, "
                                            "database_backup_id FROM backint_jobs WHERE job_act_id = :a",
                                            {job_act_id}, 6)) {
      const std::string uuid = row.text(0);
      if (session.first("SELECT id FROM backint_files WHERE job_uuid = :a AND set_id <> 0 LIMIT 1", {uuid}, 1))
        continue;
      removed.files += session.execute("DELETE FROM backint_files WHERE job_uuid = :a", {uuid});
      removed.jobs += session.execute("DELETE FROM backint_jobs WHERE uuid = :a", {uuid});
      if (row.number(5) != 0) add_datasets(row, 1, datasets);
    }
    return true;
  });
  if (!done) return false;
  result.add(removed);
  if (removed.jobs != 0)
    D3_INFO("The run %C ended without its set: removed %q Backint job records and %q file records\n",
            job_act_id.c_str(), removed.jobs, removed.files);
  return true;
}

bool Sweeper::remove_empty(Sql_Session& session, const std::string& job_uuid, std::vector<Dataset>& datasets) {
  const auto row = session.first(
      "SELECT pool_uuid, host_uuid, landscape_id, database_name, database_backup_id FROM backint_jobs WHERE uuid = :a",
      {job_uuid}, 5);
  if (!row) return false;
  add_datasets(*row, 0, datasets);
  session.execute("DELETE FROM backint_jobs WHERE uuid = :a", {job_uuid});
  return true;
}

Outcome Sweeper::sweep_abandoned(Sweep_Result& result, std::int64_t& queued) {
  Abandoned abandoned;
  std::vector<Dataset> datasets;
  std::int64_t removed = 0;
  const bool done = database_.write([&](Sql_Session& session) {
    abandoned = find_abandoned(session);
    for (const std::string& uuid : abandoned.empty)
      if (remove_empty(session, uuid, datasets)) ++removed;
    return true;
  });
  if (!done) return store_failed();
  queued = abandoned.queued;
  result.jobs += removed;
  if (queued != 0)
    D3_INFO(
        "%q backups that HANA began by itself broke off after some of their objects were saved: these are recorded "
        "now\n",
        queued);
  if (removed != 0)
    D3_INFO("Removed %q Backint job records of backups that HANA began by itself and of which nothing was saved\n",
            removed);
  return sweep_datasets(datasets, result);
}

Outcome Sweeper::sweep_all(Activity_Store& activities, Sweep_Result& result) {
  std::vector<std::string> runs;
  std::vector<Pool> pools;
  if (!activities.ended_with_records(runs) || !pools_.all(pools)) return store_failed();
  for (const std::string& run : runs)
    if (Outcome outcome = sweep_run(run, result); !outcome.ok()) return outcome;
  std::int64_t queued = 0;
  if (Outcome outcome = sweep_abandoned(result, queued); !outcome.ok()) return outcome;
  for (const Pool& pool : pools)
    if (is_local(pool) && lies_apart(pool, pools, result)) sweep_pool(pool, result);
  return {};
}

bool Sweeper::lies_apart(const Pool& pool, const std::vector<Pool>& pools, Sweep_Result& result) {
  const auto overlap = find_overlap(pool, pools, own_host_uuid_);
  if (!overlap) return true;
  const std::string reason = "the pool \"" + pool.name + "\" is not swept: its directory " + pool_directory(pool) +
                             " " + overlap->text() +
                             "; back up to one of them only, and remove by hand what nobody needs";
  D3_WARNING("%C\n", platform::cut_for_log(reason).c_str());
  result.skipped.push_back(reason);
  return false;
}

void Sweeper::sweep_pool(const Pool& pool, Sweep_Result& result) {
  for (const std::string& host : directories_in(storage_, pool, {})) {
    if (!is_uuid(host) || !is_known_host(host)) continue;
    for (const std::string& landscape : directories_in(storage_, pool, {host}))
      for (const std::string& database : directories_in(storage_, pool, {host, landscape}))
        for (const std::string& backup : directories_in(storage_, pool, {host, landscape, database}))
          if (is_backup_id(backup)) sweep_dataset(pool, {pool.uuid, host, landscape, database, backup}, result);
  }
}

void Sweeper::sweep_dataset(const Pool& pool, const Dataset& dataset, Sweep_Result& result) {
  bool owned = true;
  json_spirit::Array rows;
  const Pool_Storage::Path path{dataset.host_uuid, dataset.landscape_id, dataset.database, dataset.backup_id};
  if (!dataset.sound() || !is_owned(dataset, owned) || owned || !storage_.list(pool, path, rows).ok()) return;
  switch (storage_.remove_dataset(pool, path)) {
    case Pool_Storage::Removal::done:
      break;
    case Pool_Storage::Removal::in_use:
      D3_INFO(
          "The dataset %C of the pool %C, which no record owns, is still written to; it is left for a later sweep\n",
          dataset.path().c_str(), pool.name.c_str());
      put_off(dataset);
      return;
    case Pool_Storage::Removal::failed:
      return;
  }
  ++result.datasets;
  D3_INFO("Removed the dataset %C, which no record owns, from the pool %C\n", dataset.path().c_str(),
          pool.name.c_str());
}

bool Sweeper::is_owned(const Dataset& dataset, bool& owned) {
  const std::string database = dataset_name(dataset.database);
  const std::string landscape_id = dataset_name(dataset.landscape_id);
  return database_.read([&](Sql_Session& session) {
    // Of whatever pool: two may be one directory.
    const auto file = session.first(
        "SELECT id FROM backint_files WHERE pool_uuid IN (SELECT uuid FROM pools) AND dataset = :a LIMIT 1",
        {dataset.path()}, 1);
    const auto job = session.first(
        "SELECT id FROM backint_jobs WHERE host_uuid = :a AND database_name = :b "
        "AND database_backup_id = :c AND landscape_id = :d LIMIT 1",
        {dataset.host_uuid, database, std::int64_t{std::strtoll(dataset.backup_id.c_str(), nullptr, 10)}, landscape_id},
        1);
    // HANA's id of a backup comes into its record when its first object does, or a little later.
    const auto without_id = session.first(
        "SELECT j.id FROM backint_jobs j JOIN activities a ON a.id = j.job_act_id WHERE j.host_uuid = :a "
        "AND j.database_name = :b AND j.database_backup_id = 0 AND j.landscape_id = :c "
        "AND j.taken = 0 AND a.ended = 0 LIMIT 1",
        {dataset.host_uuid, database, landscape_id}, 1);
    owned = session.failed() || file || job || without_id;
  });
}

bool Sweeper::is_known_host(const std::string& host_uuid) {
  bool known = false;
  const bool read = database_.read([&](Sql_Session& session) {
    known = session.first("SELECT uuid FROM hosts WHERE uuid = :a", {host_uuid}, 1).has_value();
  });
  return read && known;
}

bool Sweeper::is_local(const Pool& pool) const {
  return pool.served() || (!own_host_uuid_.empty() && pool.host_uuid == own_host_uuid_);
}

}  // namespace backupd
