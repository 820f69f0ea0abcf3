#include "hdbbackint/restore/object_restorer.h"

#include "hdbbackint/console.h"
#include "hdbbackint/paths.h"
#include "hdbbackint/restore/object_search.h"
#include "hdbbackint/restore/restore_control.h"
#include "hdbbackint/stream/object_destination.h"
#include "hdbbackint/stream/restore_pipeline.h"
#include "hdbbackint/stream/resuming_reader.h"
#include "hdbbackint/stream/shared_rate.h"
#include "hdbbackint/stream/stored_decoder.h"
#include "hdbbackint/stream/throttled_stream.h"
#include "platform/log.h"

namespace hdbbackint {

namespace {

constexpr const char* type_file = "FILE";

}  // namespace

Object_Restorer::Object_Restorer(const Call& call, const Request_Entry& entry, Restore_Progress& progress)
    : call_(call), entry_(entry), progress_(progress), stop_(&call.stop) {}

void Object_Restorer::restore() {
  switch (find()) {
    case Search::not_found:
      call_.answers.not_found({}, entry_.name);
      return;
    case Search::failed:
      call_.fail(entry_, error_);
      return;
    case Search::found:
      break;
  }
  if (!move()) {
    call_.fail(entry_, error_);
    return;
  }
  D3_INFO("Restored %C, version %C\n", platform::cut_for_log(entry_.name).c_str(), file_.extern_backup_id.c_str());
  call_.answers.restored(file_.extern_backup_id, entry_.name);
}

Object_Restorer::Search Object_Restorer::find() {
  return destination() == null_device && entry_.kind != Request_Entry::Kind::newest ? find_for_check() : find_own();
}

Object_Restorer::Search Object_Restorer::find_own() {
  Object_Search search(call_, entry_);
  if (!search.find()) {
    error_ = search.error();
    return Search::failed;
  }
  if (search.files().empty()) return Search::not_found;
  file_ = std::move(search.files().front());
  return Search::found;
}

/// Reading back for a check shows nobody anything: it is open to every user.
Object_Restorer::Search Object_Restorer::find_for_check() {
  const Cause_Capture cause;
  bool found = false;
  if (!call_.records(default_seconds_retry).get_file_by_ebid(entry_.ebid.c_str(), {}, file_, found)) {
    error_ = "cannot look it up in backupd: " + cause.text();
    return Search::failed;
  }
  return found && file_.origin_path == entry_.name ? Search::found : Search::not_found;
}

bool Object_Restorer::move() {
  // HANA waits for its pipe to be opened, also for an object that cannot be read.
  const auto kind = file_.source_type == type_file ? Object_Source::Kind::file : Object_Source::Kind::pipe;
  const auto output = Object_Destination::open(kind, destination(), stop_, error_);
  if (!output) return false;
  Client_IO_Options options;
  set_options_by_host(options);
  const Restore_Control control = Restore_Control::of(call_, entry_.name, file_);
  options.max_seconds_retry = control.max_seconds_retry;
  Resuming_Reader stored(file_.location, file_.storage_path, options, stop_);
  Shared_Rate rate(control.rate_account);
  Rate_Throttle from_pool(rate, Shared_Rate::from_source, control.rate_limits.source, stop_);
  Rate_Throttle to_hana(rate, Shared_Rate::to_destination, control.rate_limits.destination, stop_);
  Throttled_Input input(stored, from_pool);
  Throttled_Sink throttled(*output, to_hana);
  Counting_Sink counted(throttled, progress_);
  Byte_Sink& sink = destination() == null_device ? static_cast<Byte_Sink&>(throttled) : counted;
  const Compression_Method method = compression_name_to_value(file_.compression.data(), file_.compression.size());
  const auto decoder = make_stored_decoder(method, input);
  if (!decoder) {
    error_ = "its record names a method that cannot be undone: " + file_.compression;
    return false;
  }
  Restore_Pipeline pipeline(*decoder, sink, {file_.size, file_.checksum}, stop_);
  if (!pipeline.run()) {
    error_ = pipeline.error() + " (" + file_.storage_path + ")";
    return false;
  }
  if (output->finish()) return true;
  error_ = output->error();
  return false;
}

const std::string& Object_Restorer::destination() const {
  return entry_.destination.empty() ? entry_.name : entry_.destination;
}

}  // namespace hdbbackint
