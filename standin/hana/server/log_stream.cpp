#include "server/log_stream.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>

#include "base/text.h"
#include "server/configuration.h"

namespace standin {

namespace {

std::string write_to_file(const Layout& layout, const std::function<bool()>& canceled, Backint_Part& part) {
  const std::string path = layout.real(part.name);
  make_directories(std::filesystem::path(path).parent_path().string());
  const Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640));
  if (!file.valid()) return "[110001] cannot create file " + part.name;
  Volume_Stream stream(part.content);
  part.result = write_stream(stream, file.get(), {canceled, [](std::size_t) {}, [] { return std::int64_t{0}; }});
  return part.result.complete ? std::string() : "[110203] Not all data could be written: " + part.name;
}

std::string write_to_pipe(const Layout& layout, const Log_Stream& stream, const std::function<bool()>& canceled,
                          Backint_Part& part) {
  Backint_Call call{layout, stream.database,      backint_user_id(layout, stream.database), stream.backup_id, 1, "LOG",
                    {},     stream.parameter_file};
  const std::string timeout = setting_of(layout, stream.database, "backup", "backint_response_timeout", "0");
  call.response_timeout_seconds = parse_number(timeout).value_or(0);
  std::vector<Backint_Part> parts{part};
  std::string error = run_backint(
      call, parts, canceled, [](std::size_t) {}, [] { return std::int64_t{0}; });
  part = parts.front();
  return error;
}

}  // namespace

std::string backint_user_id(const Layout& layout, const std::string& database) {
  return layout.multi() && database != system_database ? database + "@" + layout.sid : layout.sid;
}

std::string log_backup_folder(const Layout& layout, const std::string& database, const char* configured) {
  const std::string delivered = layout.instance_directory() + "/backup/log";
  const std::string base = setting_of(layout, database, "persistence", configured, delivered);
  const std::string folder = layout.database_folder(database);
  return (base.starts_with('/') ? base : delivered) + (folder.empty() ? "" : "/" + folder);
}

bool note_checksum(const Layout& layout, const std::string& database, const std::string& service, std::int64_t id,
                   const Backint_Part& part) {
  return append_file(layout.shared("backup_checksums.tsv"), std::to_string(id) + "\t" + database + "\t" + service +
                                                                "\t" + part.name + "\t" + part.external_id + "\t" +
                                                                std::to_string(part.result.bytes) + "\t" +
                                                                part.result.sha256 + "\n");
}

std::string write_log_stream(System_State& state, const Log_Stream& stream, const std::function<bool()>& canceled,
                             Backint_Part& part) {
  const Layout& layout = state.layout();
  // Text of any length behind the header page travels as pages of a file of its own.
  const std::string pages = state.tables_file(stream.database) + ".text." + std::to_string(stream.backup_id);
  std::string padded = stream.text;
  padded.resize((stream.text.size() + page_bytes - 1) / page_bytes * page_bytes, '\0');
  part.name = stream.name;
  part.content.header = "hana backup 1\ndatabase=" + stream.database + "\nhost=" + layout.host +
                        "\nservice=" + stream.service + "\nbackup_id=" + std::to_string(stream.backup_id) + "\n" +
                        stream.header + "bytes=" + std::to_string(stream.text.size()) + "\n";
  part.content.snapshot = pages;
  for (std::uint64_t i = 0; i < padded.size() / page_bytes; ++i) part.content.table_pages.push_back(i);
  if (!write_file(pages, padded)) return "[2] " + pages + " could not be written";
  std::string error =
      stream.backint ? write_to_pipe(layout, stream, canceled, part) : write_to_file(layout, canceled, part);
  ::unlink(pages.c_str());
  const bool noted = note_checksum(layout, stream.database, stream.service, stream.backup_id, part);
  return error.empty() && !noted ? "[2] backup_checksums.tsv could not be written" : error;
}

}  // namespace standin
