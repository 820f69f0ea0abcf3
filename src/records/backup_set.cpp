#include "records/backup_set.h"

#include <utility>

#include "scrt/time_text.h"
#include "scrt/uuid.h"

namespace {

json_spirit::Array storages_of(const std::vector<Backup_Set_Storage>& storages) {
  json_spirit::Array list;
  list.reserve(storages.size());
  for (const Backup_Set_Storage& storage : storages)
    list.emplace_back(json_spirit::Object{{"pool_uuid", storage.pool_uuid},
                                          {"upstream_pool_uuid", nullptr},
                                          {"state", json_spirit::Array{"online"}},
                                          {"size", storage.size}});
  return list;
}

}  // namespace

json_spirit::Object Backup_Set::to_record() const {
  const std::string begin = posix_time_to_utc_text(begin_time);
  return {
      {"uuid", uuid},
      {"module", module},
      {"type", type},
      {"job_name", job_name},
      {"job_id", job_id},
      {"job_act_id", job_act_id},
      {"job_uid", job_uid},
      {"host_uuid", host_uuid},
      {"agent", agent},
      {"resource_uuid", resource_uuid},
      {"minor_resource_id", minor_resource_id},
      {"source_name", source_name},
      {"pool_uuid", storages_.empty() ? json_spirit::Value() : json_spirit::Value(storages_.front().pool_uuid)},
      {"creation_time", posix_time_to_utc_text(creation_time)},
      {"start_time", begin},
      {"first_time", begin},
      {"last_time", posix_time_to_utc_text(end_time)},
      {"update_time", posix_time_to_utc_text(update_time)},
      {"source_size", total_size},
      {"total_size", total_storage_size},
      {"storages", storages_of(storages_)},
  };
}

bool compute_minor_resource_id(const std::string& resource_uuid, const std::string& database, std::string& minor_id) {
  std::string id = uuid_v5(resource_uuid, database);
  if (id.empty()) return false;
  minor_id = std::move(id);
  return true;
}
