#include "hdbbackint/backup/ondemand_job.h"

#include <algorithm>

#include "hana/common/environ_getter.h"
#include "hdbbackint/backup/ondemand_configuration.h"
#include "hdbbackint/console.h"
#include "scrt/uuid.h"

namespace hdbbackint {

namespace {

constexpr const char* type_log = "log";
constexpr const char* type_catalog = "catalog";
/// Every backup of the catalog through Backint has this one name.
constexpr const char* catalog_name = "log_backup_0_0_0_0";

/// The database of all objects of the call.
bool find_owner(const Call& call, Object_Owner& owner, std::string& error) {
  if (call.request.entries.empty()) {
    error = "the input names neither a backup job nor an object";
    return false;
  }
  Object_Owner first;
  for (const Request_Entry& entry : call.request.entries) {
    Object_Owner found;
    if (!find_object_owner(entry.name, found)) {
      error =
          "the call names no backup job, and " + entry.name + " does not lie where HANA makes the pipes of a database";
      return false;
    }
    if (first.sid.empty()) first = found;
    if (found == first) continue;
    error = "the objects of one backup belong to " + first.database + "@" + first.sid + " and to " + found.database +
            "@" + found.sid;
    return false;
  }
  if (!call.user.sid.empty() && call.user.sid != first.sid) {
    error = "the objects belong to system " + first.sid + ", not to " + call.command.user;
    return false;
  }
  owner = first;
  return true;
}

const char* type_of(const Request& request) {
  const bool catalog = std::all_of(request.entries.begin(), request.entries.end(), [](const Request_Entry& entry) {
    return entry.name.substr(entry.name.rfind('/') + 1) == catalog_name;
  });
  return catalog ? type_catalog : type_log;
}

sap_hana::Backint_Backup_Job_Info new_record(const Call& call, const Object_Owner& owner,
                                             const Ondemand_Configuration& configuration) {
  sap_hana::Backint_Backup_Job_Info record;
  record.uuid = make_uuid();
  record.database_backup_id = call.command.database_backup_id;
  record.host_uuid = call.configuration.host_uuid;
  record.type = type_of(call.request);
  record.location = configuration.location;
  record.database = owner.database;
  record.compression = configuration.compression;
  record.compression_level = configuration.compression_level;
  record.sid = owner.sid;
  record.pool_uuid = configuration.pool_uuid;
  record.extended_attrs = {{"job_definition_uuid", configuration.job_definition_uuid},
                           {"resource_uuid", configuration.resource_uuid},
                           {"uid", configuration.uid},
                           {"io_ctl", configuration.io_ctl}};
  return record;
}

bool register_record(const Call& call, const sap_hana::Backint_Backup_Job_Info& record, unsigned max_seconds_retry,
                     sap_hana::Backint_Backup_Job_Info& stored, std::string& error) {
  const Cause_Capture cause;
  if (call.records(max_seconds_retry).add_ondemand_job(record, stored)) return true;
  error = "cannot store the record of backup " + std::to_string(record.database_backup_id) + " of database " +
          record.database + "@" + record.sid + ": " + cause.text();
  return false;
}

}  // namespace

bool begin_ondemand_job(const Call& call, Job_Settings& settings, std::string& error) {
  Object_Owner owner;
  Ondemand_Configuration configuration;
  if (!find_owner(call, owner, error)) return false;
  if (call.command.database_backup_id == 0) {
    error = "HANA gave no backup id (option -s), its backup could not be found again";
    return false;
  }
  if (!load_ondemand_configuration(owner, call.configuration.host_uuid, configuration, error)) return false;
  sap_hana::Backint_Backup_Job_Info record = new_record(call, owner, configuration);
  {
    const Cause_Capture cause;
    if (!sap_hana::Environ_Getter::instance()->get_landscape_id(owner.sid.c_str(), record.landscape_id)) {
      error = "the landscape id of system " + owner.sid + " is not known: " + cause.text();
      return false;
    }
  }
  // Nothing is stored on backupd for settings that cannot be used.
  if (!read_job_settings(record, settings, error)) {
    error = "the log backup configuration " + configuration.path +
            " cannot be used, remove it and set the log backup up again: " + error;
    return false;
  }
  sap_hana::Backint_Backup_Job_Info stored;
  if (!register_record(call, record, settings.max_seconds_retry, stored, error)) return false;
  if (!read_job_settings(stored, settings, error)) return false;
  // One account for all log backups of the definition: each alone would hardly notice its limit.
  settings.rate_account = configuration.job_definition_uuid;
  return true;
}

}  // namespace hdbbackint
