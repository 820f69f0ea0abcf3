#include "hdbbackint/backup/object_saver.h"

#include <exception>

#include "hdbbackint/backup/dataset_path.h"
#include "hdbbackint/console.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "scrt/time_text.h"
#include "scrt/uuid.h"

namespace hdbbackint {

namespace {

constexpr const char* type_pipe = "PIPE";
constexpr const char* type_file = "FILE";

std::string last_segment(const std::string& path) { return path.substr(path.rfind('/') + 1); }

}  // namespace

Object_Saver::Object_Saver(const Backup_Resources& resources, const Request_Entry& entry)
    : resources_(resources), entry_(entry), ebid_(make_uuid()), stop_(&resources.call.stop) {}

void Object_Saver::save() {
  const Call& call = resources_.call;
  bool saved = false;
  try {
    saved = open_source() && store() && commit() && record();
  } catch (const std::exception& problem) {
    // Out of memory: the other objects may still come through.
    error_ = problem.what();
  }
  if (saved) {
    D3_INFO("Saved %C as %C, %Q bytes, %Q stored\n", platform::cut_for_log(entry_.name).c_str(), storage_path_.c_str(),
            stream_.raw_bytes, stream_.stored_bytes);
    call.answers.saved(ebid_, entry_.name, stream_.raw_bytes);
    return;
  }
  call.fail(entry_, error_);
}

bool Object_Saver::open_source() {
  const auto kind = entry_.kind == Request_Entry::Kind::pipe ? Object_Source::Kind::pipe : Object_Source::Kind::file;
  source_ = Object_Source::open(kind, entry_.name, stop_, error_);
  return source_ != nullptr;
}

bool Object_Saver::store() {
  const Job_Settings& settings = resources_.settings;
  Rate_Throttle from_source(resources_.rate, Shared_Rate::from_source, settings.rate_limits.source, stop_);
  Rate_Throttle to_pool(resources_.rate, Shared_Rate::to_destination, settings.rate_limits.destination, stop_);
  Save_Pipeline::Options options;
  options.method = settings.compression;
  options.level = settings.job.compression_level;
  if (!settings.rate_limits.source.empty()) options.source_throttle = &from_source;
  if (!settings.rate_limits.destination.empty()) options.destination_throttle = &to_pool;
  pipeline_ = std::make_unique<Save_Pipeline>(
      *source_, [this](Compression_Method method, std::string&) { return open_sink(method); }, options,
      resources_.workers, stop_);
  return pipeline_->run(stream_) || fail(pipeline_->error());
}

std::unique_ptr<Byte_Sink> Object_Saver::open_sink(Compression_Method method) {
  const Job_Settings& settings = resources_.settings;
  storage_path_ = object_path(settings.job, last_segment(entry_.name), ebid_, method);
  Pool_Target target;
  target.url = settings.job.location;
  target.path = storage_path_;
  set_options_by_host(target.options);
  target.options.max_seconds_retry = settings.max_seconds_retry;
  target.resumption_buffer_size = settings.resumption_buffer_size;
  return std::make_unique<Resuming_Writer>(std::move(target), stop_);
}

bool Object_Saver::commit() {
  // A stop that came while the last bytes flowed still leaves nothing behind.
  if (stop_.requested()) return fail("stopped");
  auto& writer = static_cast<Resuming_Writer&>(*pipeline_->sink());
  return writer.commit() || fail(writer.error());
}

bool Object_Saver::record() {
  const Job_Settings& settings = resources_.settings;
  sap_hana::Backup_File_Info file;
  file.info_uuid = settings.job.uuid;
  file.filename = last_segment(entry_.name);
  file.origin_path = entry_.name;
  file.size = stream_.raw_bytes;
  file.storage_size = stream_.stored_bytes;
  file.extern_backup_id = ebid_;
  file.source_type = entry_.kind == Request_Entry::Kind::pipe ? type_pipe : type_file;
  file.pool_uuid = settings.job.pool_uuid;
  file.storage_path = storage_path_;
  file.backup_time = posix_time_to_utc_text(platform::Clock::current().wall_seconds());
  file.location = settings.job.location;
  file.database_backup_id = settings.job.database_backup_id;
  file.compression = compression_value_to_name(stream_.method);
  file.checksum = stream_.checksum;
  const Cause_Capture cause;
  if (tell(file)) return true;
  fail("backupd did not take its record: " + cause.text());
  remove_unrecorded();
  return false;
}

bool Object_Saver::tell(const sap_hana::Backup_File_Info& file) {
  sap_hana::Backint_Catalog_helper records = resources_.call.records(resources_.settings.max_seconds_retry);
  if (resources_.turns == nullptr) return records.add_file(file);
  return resources_.turns->take([&](bool last) { return last ? records.add_last_file(file) : records.add_file(file); });
}

/// Only when backupd says that it has no record: one that it took although its answer was lost must keep its object.
void Object_Saver::remove_unrecorded() {
  sap_hana::Backup_File_Info file;
  bool found = true;
  sap_hana::Backint_Catalog_helper records = resources_.call.records(0);
  if (!records.get_file_by_ebid(ebid_.c_str(), {}, file, found) || found) return;
  Client_IO_Options options;
  set_options_by_host(options);
  Client_IO_Ex pool(options);
  if (!pool.connect(resources_.settings.job.location) || !pool.remove(storage_path_)) {
    D3_WARNING("%C stays on the pool without a record: %C\n", storage_path_.c_str(), pool.error().c_str());
  }
}

bool Object_Saver::fail(const std::string& why) {
  error_ = why;
  return false;
}

}  // namespace hdbbackint
