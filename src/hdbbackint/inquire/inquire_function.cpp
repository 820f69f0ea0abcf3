#include "hdbbackint/inquire/inquire_function.h"

#include <algorithm>

#include "hdbbackint/console.h"
#include "hdbbackint/protocol/interface_version.h"
#include "scrt/time_text.h"

namespace hdbbackint {

namespace {

void inquire(const Call& call, const Request_Entry& entry) {
  auto query = call.own_files();
  query.origin_path = entry.name;
  query.extern_backup_id = entry.ebid;
  std::list<sap_hana::Backup_File_Info> files;
  const Cause_Capture cause;
  if (!call.records(default_seconds_retry).get_files(query, files)) {
    call.fail(entry, "cannot look it up in backupd: " + cause.text());
    return;
  }
  // An exact name is meant, never the beginning of one.
  files.remove_if([&](const sap_hana::Backup_File_Info& file) {
    return (!entry.name.empty() && file.origin_path != entry.name) ||
           (!entry.ebid.empty() && file.extern_backup_id != entry.ebid);
  });
  if (files.empty()) call.answers.not_found(entry.ebid, entry.name);
  const bool timestamps = wants_timestamps(call.request.caller_interface);
  for (const sap_hana::Backup_File_Info& file : files) {
    call.answers.backup(file.extern_backup_id, file.origin_path,
                        timestamps ? inquire_timestamp(file.backup_time) : std::string());
  }
}

}  // namespace

void run_inquire(const Call& call) {
  for (const Request_Entry& entry : call.request.entries) inquire(call, entry);
}

std::string inquire_timestamp(const std::string& backup_time) {
  std::time_t time = 0;
  if (!iso8601_to_posix_time(backup_time.c_str(), time)) return {};
  std::string text = posix_time_to_utc_text(time);
  std::replace(text.begin(), text.end(), ' ', 'T');
  return text + ".000Z";
}

}  // namespace hdbbackint
