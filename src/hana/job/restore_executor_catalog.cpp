// Staging: what hdbbackint must know of HANA's catalog before a recovery to a point in time.

#include <exception>

#include "agent/backupd_client/agent_configuration.h"
#include "agent/backupd_client/json_rpc_forward.h"
#include "hana/common/directory_permission.h"
#include "hana/common/file_group.h"
#include "hana/common/json_file.h"
#include "hana/common/restore_conf_path.h"
#include "hana/job/restore_executor.h"
#include "job/job_definition.h"
#include "platform/files.h"
#include "platform/log.h"
#include "platform/secure_string.h"
#include "records/rate_limits.h"

namespace {

constexpr const char* download_method = "hana.file.download";
constexpr const char* extended_key = "extended_attrs";
constexpr int default_json_flags = 0;

bool give_to_sap(const std::string& path) {
  if (sap_hana::change_file_group_to_sap(path.c_str(), nullptr)) return true;
  D3_ERROR("Failed to change file group\n");
  return false;
}

}  // namespace

namespace sap_hana {

bool Restore_Executor::restore_catalog(const Restore_Job_Source::Entry_Item& entry,
                                       const Restore_Source_Collector::HANA_Catalog_Info& info) {
  if (info.location.empty() || info.file_detail.storage_path.empty()) {
    D3_ERROR("Lack of location or storage_path\n");
    return false;
  }
  const std::string directory = restore_catalog_directory();
  if (!make_catalog_directory(directory)) return false;
  D3_INFO("Restore HANA using catalog with database backup id %Q\n", info.database_backup_id);
  json_spirit::Object attributes;
  if (!extended_attributes(attributes)) return false;
  const json_spirit::Object document{{"location", info.location},
                                     {"filename", info.file_detail.storage_path},
                                     {"source_type", info.file_detail.source_type},
                                     {"extern_backup_id", info.file_detail.extern_backup_id},
                                     {"origin_sid", entry.origin.sid},
                                     {"origin_database", entry.origin.database},
                                     {"target_sid", sid_},
                                     {"pool_uuid", info.pool_uuid},
                                     {"target_database", entry.target.database},
                                     {extended_key, attributes}};
  std::string catalog_path;
  std::string restore_path;
  if (!catalog_conf_file_name(entry.origin.sid, entry.origin.database, sid_, entry.target.database, catalog_path) ||
      !restore_ext_conf_file(sid_, entry.target.database, restore_path))
    return false;
  if (!dump_json(catalog_path, document, default_json_flags, false, platform::mode_sap_file)) {
    D3_ERROR("Failed to dump catalog info to file\n");
    return false;
  }
  if (!dump_json(restore_path, attributes, default_json_flags, false, platform::mode_sap_file)) {
    D3_ERROR("Failed to dump restore extend attrs to file\n");
    return false;
  }
  if (!give_to_sap(catalog_path) || !give_to_sap(restore_path) || !give_to_sap(directory)) return false;
  if (is_cluster_) stage_on_other_hosts(document);
  return true;
}

bool Restore_Executor::make_catalog_directory(const std::string& directory) const {
  if (platform::mkdir_p(directory.c_str(), platform::mode_directory) == 0 &&
      change_directory_permission(directory, platform::mode_directory))
    return true;
  D3_ERROR("Failed to create directory %s\n", directory.c_str());
  return false;
}

bool Restore_Executor::extended_attributes(json_spirit::Object& attributes) const {
  Agent_Configuration configuration;
  secure_string key;
  std::string error;
  if (!Agent_Configuration::load(configuration, error) || !configuration.load_configured_key(key, error)) {
    D3_ERROR("No access key for the restore: %C\n", platform::cut_for_log(error).c_str());
    return false;
  }
  json_spirit::Object io_ctl{{"max_seconds_retry", def_.max_seconds_retry()}, {"access_key", key}};
  def_.rate_limits().to_json_in_object(io_ctl, false);
  attributes = {{"io_ctl", std::move(io_ctl)}};
  return true;
}

void Restore_Executor::stage_on_other_hosts(const json_spirit::Object& document) const {
  for (const Resource_Info_Getter::Instance_Info& instance : cluster_instances_) {
    try {
      (void)json_rpc_forward(instance.host_uuid, document, download_method);
    } catch (const std::exception& error) {
      // HANA reads its catalog on the host of the master name server: the others need it after a failover only.
      D3_WARNING("The catalog is not staged on another host: %C\n", error.what());
    }
  }
}

}  // namespace sap_hana
