#include "hdbbackint/delete/delete_function.h"

#include "agent/backupd_client/client_io_ex.h"
#include "hdbbackint/console.h"
#include "platform/log.h"

namespace hdbbackint {

namespace {

/// The directory of the backup goes with its last object.
void remove_empty_directory(Client_IO_Ex& pool, const std::string& object) {
  const std::string directory = object.substr(0, object.rfind('/'));
  std::vector<Pool_Entry> entries;
  if (pool.get_dir(directory, entries) && entries.empty()) (void)pool.remove(directory);
}

void remove_stored(Client_IO_Ex& pool, const sap_hana::Backup_File_Info& file) {
  if (pool.remove(file.storage_path)) return remove_empty_directory(pool, file.storage_path);
  // The record is gone and with it the object for HANA; what stays is space that backupd's sweep gives back.
  if (pool.exists(file.storage_path)) {
    D3_WARNING("%C stays on the pool without a record: %C\n", file.storage_path.c_str(), pool.error().c_str());
  }
}

void remove_version(const Call& call, const Request_Entry& entry) {
  const Cause_Capture cause;
  auto records = call.records(default_seconds_retry);
  sap_hana::Backup_File_Info file;
  bool found = false;
  if (!records.get_file_by_ebid(entry.ebid.c_str(), call.own_files(), file, found)) {
    call.fail(entry, "cannot look it up in backupd: " + cause.text());
    return;
  }
  if (!found || file.origin_path != entry.name) {
    call.answers.not_found(entry.ebid, entry.name);
    return;
  }
  // The pool first: a record must not go while its object cannot.
  Client_IO_Options options;
  set_options_by_host(options);
  Client_IO_Ex pool(options);
  if (!pool.connect(file.location)) {
    call.fail(entry, pool.error());
    return;
  }
  if (!records.remove_file(file.id)) {
    call.fail(entry, "backupd keeps its record: " + cause.text());
    return;
  }
  remove_stored(pool, file);
  call.answers.deleted(entry.ebid, entry.name);
}

}  // namespace

void run_delete(const Call& call) {
  for (const Request_Entry& entry : call.request.entries) remove_version(call, entry);
}

}  // namespace hdbbackint
