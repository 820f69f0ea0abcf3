#include "hana/job/hana_backup_set.h"

namespace {

constexpr const char* hana_module = "hana";

json_spirit::Array files_of(const std::vector<sap_hana::HANA_Backup_Set::Backup_File>& files) {
  json_spirit::Array list;
  list.reserve(files.size());
  for (const auto& file : files)
    list.emplace_back(json_spirit::Object{{"filename", file.filename},
                                          {"origin_path", file.origin_path},
                                          {"storage_path", file.storage_path},
                                          {"extern_backup_id", file.extern_backup_id},
                                          {"source_type", file.source_type},
                                          {"size", file.size},
                                          {"storage_size", file.storage_size}});
  return list;
}

}  // namespace

namespace sap_hana {

HANA_Backup_Set::HANA_Backup_Set() { module = hana_module; }

Catalog_Metadata HANA_Backup_Set::metadata() const {
  // The document starts as an object, so that no setter can refuse.
  Catalog_Metadata document;
  (void)document.set_backup_databases({{"name", database}, {"database_backup_id", database_backup_id}});
  (void)document.set_sid(sid);
  (void)document.set_instance_number(instance_number);
  (void)document.set_instance_name(instance_name);
  (void)document.set_system_version(system_version);
  (void)document.set_incarnation(incarnation);
  (void)document.set_lifeline(lifeline);
  return document;
}

json_spirit::Object HANA_Backup_Set::to_record() const {
  json_spirit::Object record = Backup_Set::to_record();
  record["database"] = database;
  record["database_backup_id"] = database_backup_id;
  record["lifeline"] = lifeline;
  record["incarnation"] = incarnation;
  record["files"] = files_of(files_);
  record["metadata"] = metadata().document();
  if (!lift_reason.empty()) {
    record["requested_type"] = requested_type;
    record["lift_reason"] = lift_reason;
  }
  return record;
}

}  // namespace sap_hana
