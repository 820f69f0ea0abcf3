#pragma once

#include <functional>
#include <string>

#include "backint/backint_call.h"
#include "engine/system_state.h"

namespace standin {

/// A log or catalog backup: a header page and text behind it.
struct Log_Stream {
  std::string database;
  std::string service;  ///< "catalog" for the catalog's
  std::int64_t backup_id = 0;
  std::string header;  ///< lines behind those that all streams have
  std::string text;
  bool backint = false;
  std::string parameter_file;
  std::string name;  ///< documented path of the pipe or file
};

/// "<SID>" or "<database>@<SID>", as hdbbackint is told.
std::string backint_user_id(const Layout& layout, const std::string& database);
/// Documented folder of log and catalog backups that go into files: `configured` of [persistence], or the delivered
/// one.
std::string log_backup_folder(const Layout& layout, const std::string& database, const char* configured);
/// Writes the stream into its pipe or file and its line into backup_checksums.tsv. The error's text, empty when all of
/// it was saved; `part` tells size and external id.
std::string write_log_stream(System_State& state, const Log_Stream& stream, const std::function<bool()>& canceled,
                             Backint_Part& part);
bool note_checksum(const Layout& layout, const std::string& database, const std::string& service, std::int64_t id,
                   const Backint_Part& part);

}  // namespace standin
