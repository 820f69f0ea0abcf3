#include "hana/backint_catalog/backint_job.h"

#include <utility>

#include "hana/backint_catalog/record_fields.h"

namespace sap_hana {

json_spirit::Object Backint_Backup_Job_Info::to_json() const {
  json_spirit::Object object;
  // backupd numbers the records.
  if (id != 0) object["id"] = id;
  object["database_backup_id"] = database_backup_id;
  object["uuid"] = uuid;
  object["host_uuid"] = host_uuid;
  object["job_act_id"] = job_act_id;
  object["type"] = type;
  object["location"] = location;
  object["database"] = database;
  object["compression"] = compression;
  object["compression_level"] = compression_level;
  object["sid"] = sid;
  object["pool_uuid"] = pool_uuid;
  object["landscape_id"] = landscape_id;
  object["extended_attrs"] = extended_attrs;
  return object;
}

bool Backint_Backup_Job_Info::from_json(const json_spirit::Object& object, std::string* error) {
  try {
    Backint_Backup_Job_Info read;
    read.uuid = json_spirit::object_require<std::string>(object, "uuid");
    Record_Reader read_key(object);
    read_key("id", read.id)("database_backup_id", read.database_backup_id)("host_uuid", read.host_uuid)(
        "job_act_id", read.job_act_id)("type", read.type)("location", read.location)("database", read.database)(
        "compression", read.compression)("compression_level", read.compression_level)("sid", read.sid)(
        "pool_uuid", read.pool_uuid)("landscape_id", read.landscape_id)("extended_attrs", read.extended_attrs);
    *this = std::move(read);
    return true;
  } catch (const json_spirit::Error& failure) {
    if (error != nullptr) *error = failure.what();
    return false;
  }
}

}  // namespace sap_hana
