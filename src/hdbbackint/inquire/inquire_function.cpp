#include "hdbbackint/inquire/inquire_function.h"

#include <algorithm>

#include "hdbbackint/protocol/interface_version.h"
#include "hdbbackint/restore/object_search.h"
#include "scrt/time_text.h"

namespace hdbbackint {

namespace {

void inquire(const Call& call, const Request_Entry& entry) {
  Object_Search search(call, entry);
  if (!search.find()) {
    call.fail(entry, search.error());
    return;
  }
  const std::list<sap_hana::Backup_File_Info>& files = search.files();
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
