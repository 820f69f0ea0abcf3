#include "hdbbackint/backup/backup_function.h"

#include "hdbbackint/backup/object_saver.h"
#include "hdbbackint/backup/ondemand_configuration.h"
#include "hdbbackint/backup/ondemand_job.h"
#include "hdbbackint/console.h"
#include "hdbbackint/parallel_objects.h"
#include "hdbbackint/protocol/tool_option.h"

namespace hdbbackint {

namespace {

/// The job of a call: all its objects belong to one.
std::string job_uuid_of(const Call& call) {
  for (const Request_Entry& entry : call.request.entries) {
    const std::string uuid = find_job_uuid(call.request.tool_option, entry.name);
    if (!uuid.empty()) return uuid;
  }
  return {};
}

/// HANA backs up logs and its catalog on its own, without a job. A data backup that somebody began beside the product
/// must not become one of these.
bool is_ondemand(const Call& call, std::string& error) {
  const std::string named = tool_option_value(call.request.tool_option, "job_uuid");
  if (!named.empty()) {
    error = "the tool option names the backup job \"" + named + "\", which is no uuid";
    return false;
  }
  for (const Request_Entry& entry : call.request.entries) {
    if (!is_data_backup(entry.name)) continue;
    error = "the data backup of " + (call.command.user.empty() ? "this database" : "database " + call.command.user) +
            " names no backup job: begin data backups with a job definition";
    return false;
  }
  return true;
}

/// The database that HANA is backing up, by the user of the call or else by the place of its pipes; that of a system
/// without tenants is called like the system. Empty where neither tells: an old HANA may make its pipes elsewhere.
std::string database_of(const Call& call) {
  if (!call.user.database.empty()) return call.user.database;
  for (const Request_Entry& entry : call.request.entries) {
    Object_Owner owner;
    if (find_object_owner(entry.name, owner)) return owner.database;
  }
  return {};
}

/// The record says for whom the objects are stored. One that another database's data went to would pass for a backup of
/// its own and could be restored as such.
bool is_of_record(const Call& call, const sap_hana::Backint_Backup_Job_Info& job, std::string& error) {
  const std::string record = "the Backint job record " + job.uuid;
  if (!call.user.sid.empty() && !job.sid.empty() && call.user.sid != job.sid) {
    error = record + " belongs to system " + job.sid + ", not to " + call.command.user;
    return false;
  }
  const std::string database = database_of(call);
  if (database.empty() || job.database.empty() || database == job.database) return true;
  error = record + " is for database " + job.database + ", but HANA backs up " + database +
          ": nothing is stored; a system without tenants has one database, which is called like it; else look whether "
          "\"mode\" in the section [multidb] of the system's global.ini can be read and is right. Then run the backup "
          "again";
  return false;
}

bool read_settings(const Call& call, const std::string& uuid, Job_Settings& settings, std::string& error) {
  const Cause_Capture cause;
  sap_hana::Backint_Backup_Job_Info job;
  if (!call.records(default_seconds_retry).get_job(uuid.c_str(), job)) {
    error = "cannot read the Backint job record " + uuid + ": " + cause.text();
    return false;
  }
  return is_of_record(call, job, error) && read_job_settings(job, settings, error);
}

/// Tells backupd which backup of HANA the job became, before its first object is stored.
bool announce_backup_id(const Call& call, Job_Settings& settings, std::string& error) {
  const std::uint64_t id = call.command.database_backup_id;
  if (id == 0) return true;
  const Cause_Capture cause;
  auto records = call.records(settings.max_seconds_retry);
  if (!records.update_job_database_backup_id(settings.job.uuid.c_str(), id)) {
    error = "cannot set backup id " + std::to_string(id) + " in the Backint job record " + settings.job.uuid + ": " +
            cause.text();
    return false;
  }
  settings.job.database_backup_id = id;
  return true;
}

bool find_settings(const Call& call, Job_Settings& settings, std::string& error) {
  const std::string uuid = job_uuid_of(call);
  if (uuid.empty()) return is_ondemand(call, error) && begin_ondemand_job(call, settings, error);
  return read_settings(call, uuid, settings, error) && announce_backup_id(call, settings, error);
}

}  // namespace

void run_backup(const Call& call) {
  Job_Settings settings;
  std::string error;
  if (!find_settings(call, settings, error)) return call.fail_all(error);

  const bool limited = !settings.rate_limits.source.empty() || !settings.rate_limits.destination.empty();
  Shared_Rate rate(limited ? settings.rate_account : std::string());
  Worker_Pool workers(Worker_Pool::fitting_threads());
  const std::vector<Request_Entry>& entries = call.request.entries;
  Record_Turns turns(entries.size());
  const bool ondemand = job_uuid_of(call).empty();
  const Backup_Resources resources{call, settings, rate, workers, ondemand ? &turns : nullptr};
  serve_in_order(entries.size(), parallel_objects,
                 [&](std::size_t index) { Object_Saver(resources, entries[index]).save(); });
}

}  // namespace hdbbackint
