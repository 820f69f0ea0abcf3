#pragma once

#include "hdbbackint/backup/record_turns.h"
#include "hdbbackint/call.h"
#include "hdbbackint/settings.h"
#include "hdbbackint/stream/resuming_writer.h"
#include "hdbbackint/stream/save_pipeline.h"
#include "hdbbackint/stream/shared_rate.h"
#include "hdbbackint/stream/worker_pool.h"

namespace hdbbackint {

/// What the objects of one backup share. The saver keeps references.
struct Backup_Resources {
  const Call& call;
  const Job_Settings& settings;
  Shared_Rate& rate;
  Worker_Pool& workers;
  Record_Turns* turns = nullptr;  ///< of a backup that HANA began by itself, else none
};

/// Saves one object: reads it from HANA, stores it, records it, answers. One thread; used once.
class Object_Saver {
 public:
  Object_Saver(const Backup_Resources& resources, const Request_Entry& entry);

  /// Always answers, with "#SAVED" or "#ERROR".
  void save();

 private:
  bool open_source();
  bool store();
  bool commit();
  bool record();
  bool tell(const sap_hana::Backup_File_Info& file);
  std::unique_ptr<Byte_Sink> open_sink(Compression_Method method);
  void remove_unrecorded();
  bool fail(const std::string& why);

  const Backup_Resources& resources_;
  const Request_Entry& entry_;
  const std::string ebid_;
  Stop_Source stop_;
  std::unique_ptr<Object_Source> source_;
  std::unique_ptr<Save_Pipeline> pipeline_;
  std::string storage_path_;
  Saved_Stream stream_;
  std::string error_;
};

}  // namespace hdbbackint
