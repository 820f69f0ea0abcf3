#include "hana/backint_catalog/backint_backup_file.h"

#include <utility>

#include "hana/backint_catalog/record_fields.h"

namespace sap_hana {

json_spirit::Object Backup_File_Info::to_json() const {
  json_spirit::Object object;
  // backupd numbers the records.
  if (id != 0) object["id"] = id;
  object["info_uuid"] = info_uuid;
  object["filename"] = filename;
  object["origin_path"] = origin_path;
  object["size"] = size;
  object["storage_size"] = storage_size;
  object["extern_backup_id"] = extern_backup_id;
  object["source_type"] = source_type;
  object["pool_uuid"] = pool_uuid;
  object["storage_path"] = storage_path;
  object["backup_time"] = backup_time;
  object["location"] = location;
  object["database_backup_id"] = database_backup_id;
  object["compression"] = compression;
  object["checksum"] = checksum;
  return object;
}

bool Backup_File_Info::from_json(const json_spirit::Object& object, std::string* error) {
  try {
    Backup_File_Info read;
    Record_Reader read_key(object);
    read_key("id", read.id)("info_uuid", read.info_uuid)("filename", read.filename)("origin_path", read.origin_path)(
        "size", read.size)("storage_size", read.storage_size)("extern_backup_id", read.extern_backup_id)(
        "source_type", read.source_type)("pool_uuid", read.pool_uuid)("storage_path", read.storage_path)(
        "backup_time", read.backup_time)("location", read.location)("database_backup_id", read.database_backup_id)(
        "compression", read.compression)("checksum", read.checksum);
    *this = std::move(read);
    return true;
  } catch (const json_spirit::Error& failure) {
    if (error != nullptr) *error = failure.what();
    return false;
  }
}

}  // namespace sap_hana
