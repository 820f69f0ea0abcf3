#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <thread>

#include "backint/backint_call.h"
#include "base/clock.h"
#include "base/text.h"
#include "catalog/backup_log.h"
#include "engine/recovered_store.h"
#include "engine/redo_log.h"
#include "server/backup.h"
#include "server/configuration.h"
#include "server/log_stream.h"

namespace standin {

namespace {
constexpr int topology_volume = 0;
constexpr std::int64_t most_channels = 32;
constexpr std::uint64_t pages_worth_a_channel = 256;

std::string level_of(const std::string& type) {
  if (type == incremental_backup) return "INCREMENTAL";
  return type == differential_backup ? "DIFFERENTIAL" : "COMPLETE";
}
}  // namespace

struct Backup_Run::Piece {
  Backint_Part part;
  int volume = 0;
};

void Backup_Run::log(const char* level, const std::string& text) const {
  append_backup_log(layout_, running_.request.database, now_ms(), running_.id, level, "BACKUP", text);
}

bool Backup_Run::canceled() const {
  const std::int64_t at = running_.cancel_at_ms;
  return at != 0 && (now_ms() >= at || (running_.cancel_held && !faults_.stands("cancel_pending_ms")));
}

std::string Backup_Run::setting(const char* key, const char* otherwise) const {
  return setting_of(layout_, running_.request.database, "backup", key, otherwise);
}

std::int64_t Backup_Run::rate() {
  if (running_.unthrottled) return 0;
  return faults_.number("stream_bytes_per_second", 0, running_.request.database);
}

std::string Backup_Run::name_of(int volume, int part, std::int64_t base_id) const {
  const Backup_Request& request = running_.request;
  std::string base = layout_.backint_directory(request.database);
  if (!request.backint) {
    const std::string folder = layout_.database_folder(request.database);
    base = layout_.instance_directory() + "/backup/data" + (folder.empty() ? "" : "/" + folder);
  }
  std::string name = request.prefix.starts_with('/') ? request.prefix : base + "/" + request.prefix;
  name += "_databackup_";
  if (request.type != complete_backup)
    name += std::string(request.type == incremental_backup ? "incremental_" : "differential_") +
            std::to_string(base_id) + "_" + std::to_string(running_.id) + "_";
  return name + std::to_string(volume) + "_" + std::to_string(part);
}

std::string Backup_Run::header_of(const std::string& service, int volume, int part, const Savepoint& savepoint,
                                  const Backup_Base& base) const {
  return "hana backup 1\ndatabase=" + running_.request.database + "\nhost=" + layout_.host + "\nservice=" + service +
         "\nvolume=" + std::to_string(volume) + "\npart=" + std::to_string(part) +
         "\nbackup_id=" + std::to_string(running_.id) + "\nkind=" + level_of(running_.request.type) +
         "\nbase_id=" + std::to_string(base.backup_id) + "\nsavepoint=" + std::to_string(savepoint.id) +
         "\nsavepoint_ms=" + std::to_string(savepoint.ms) + "\nredo_position=" + std::to_string(savepoint.redo) + "\n";
}

std::string Backup_Run::execute(std::optional<Backup_Base> base) {
  System_State state;
  if (!state.open(layout_)) return "[2] state is not accessible";
  log("INFO", "SAVE DATA started");
  log("INFO", "command: " + running_.request.statement);
  std::string error;
  const auto savepoint = take_savepoint(state, running_.request.database, running_.id, base ? base->savepoint : 0);
  if (savepoint) {
    Catalog(state).note_savepoint(running_.entry, savepoint->ms);
    error = write_services(state, *savepoint, base.value_or(Backup_Base{}));
    drop_savepoint_file(*savepoint);
  } else {
    error = "[2] savepoint could not be written";
  }
  const std::string outcome = decide_outcome(error);
  faults_.pause("catalog_end_late_ms", 0, running_.request.database);
  Catalog(state).finish(running_.entry, outcome, error.empty() ? "<ok>" : error);
  {
    const std::lock_guard guard(running_.mutex);
    running_.state = outcome;
    running_.end_ms = now_ms();
  }
  if (error.empty())
    log("INFO", "SAVE DATA finished successfully");
  else
    log("ERROR", "SAVE DATA finished with error: [447] backup could not be completed, " + error);
  if (error.empty()) write_catalog_backup(state);
  return error;
}

std::string Backup_Run::decide_outcome(std::string& error) {
  constexpr std::int64_t step_ms = 5;
  std::unique_lock guard(running_.mutex);
  const auto pending = [&] { return running_.cancel_at_ms != 0 ? !canceled() : running_.cancel_outcome == "never"; };
  while (pending()) {
    guard.unlock();
    sleep_ms(step_ms);
    guard.lock();
  }
  running_.decided = true;
  running_.ended.notify_all();
  if (!canceled()) return error.empty() ? "successful" : "failed";
  const bool fails = running_.cancel_outcome == "failed";
  error = fails ? "[110203] Not all data could be written: the backup was given up" : "Backup was canceled by user";
  return fails ? "failed" : "canceled";
}

std::string Backup_Run::write_services(System_State& state, const Savepoint& savepoint, const Backup_Base& base) {
  const Backup_Request& request = running_.request;
  if (request.backint && request.prefix.starts_with('/') &&
      !request.prefix.starts_with(layout_.backint_directory(request.database) + "/"))
    return "[110091] Invalid path selection for data backup using backint: " + request.prefix + " must start with " +
           layout_.backint_directory(request.database);
  const std::int64_t channels = std::clamp<std::int64_t>(
      parse_number(setting("parallel_data_backup_backint_channels", "1")).value_or(1), 1, most_channels);
  const bool delta = request.type != complete_backup;
  std::vector<std::vector<Piece>> all;
  std::vector<Topology_Service> topology;
  std::size_t objects = 0;
  bool first = true;
  for (const auto& running : running_.services) {
    const Service& service = running->service;
    std::vector<Piece> pieces;
    const auto add = [&](int volume, int part, Volume_Stream::Content content) {
      content.header = header_of(service.name, volume, part, savepoint, base);
      content.snapshot = savepoint.snapshot;
      Piece piece;
      piece.volume = volume;
      piece.part.name = name_of(volume, part, base.backup_id);
      piece.part.content = std::move(content);
      piece.part.size = Volume_Stream(piece.part.content).size();
      running->size += static_cast<std::int64_t>(piece.part.size);
      pieces.push_back(std::move(piece));
    };
    if (first) add(topology_volume, 1, {});
    const auto ballast =
        delta ? ballast_changed(state, request.database, service, savepoint.ballast_since, savepoint.ballast_until)
              : ballast_at(state, request.database, service, savepoint.ballast_until);
    const std::uint64_t pages = count_pages(ballast);
    const bool split = request.backint && channels > 1 && pages >= pages_worth_a_channel;
    const auto parts = static_cast<std::uint64_t>(split ? channels : 1);
    const bool with_tables = has_tables(layout_, service.name);
    for (std::uint64_t i = 0; i < parts; ++i) {
      Volume_Stream::Content content;
      if (with_tables && i == 0) content.table_pages = savepoint.changed;
      content.ballast = slice(ballast, pages * i / parts, pages * (i + 1) / parts);
      content.ballast_seed = service.seed;
      add(service.volume, static_cast<int>(i) + 1, std::move(content));
    }
    topology.push_back({service.name, service.volume, static_cast<int>(parts),
                        static_cast<std::uint64_t>(service.ballast_pages), service.seed});
    first = false;
    objects += pieces.size();
    all.push_back(std::move(pieces));
  }
  std::string& topology_header = all.front().front().part.content.header;
  topology_header += topology_text(topology);
  if (topology_header.size() > page_bytes) return "[2] the topology has too many services";
  // The catalog names the destinations of a backup as soon as it runs: a cancel finds it by them.
  bool noted = note_files(state, all, savepoint, Files::begin);
  std::vector<std::string> errors(all.size());
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < all.size(); ++i)
    threads.emplace_back([&, i] { errors[i] = write_service(*running_.services[i], all[i], objects); });
  for (std::thread& thread : threads) thread.join();
  noted = note_files(state, all, savepoint, Files::end) && noted;
  for (const std::string& error : errors)
    if (!error.empty()) return error;
  return noted ? std::string() : "[2] catalog could not be written";
}

std::string Backup_Run::write_service(Running_Service& service, std::vector<Piece>& pieces, std::size_t objects) {
  const Backup_Request& request = running_.request;
  for (const Piece& piece : pieces)
    log("INFO", std::string("to ") + (request.backint ? " backint: " : " file: ") + piece.part.name);
  if (!request.backint) {
    for (Piece& piece : pieces) {
      const std::string error = write_to_file(piece, service);
      if (!error.empty()) return error;
    }
    return {};
  }
  Backint_Call call{layout_,
                    request.database,
                    backint_user_id(layout_, request.database),
                    running_.id,
                    objects,
                    level_of(request.type),
                    request.tool_option,
                    setting("data_backup_parameter_file", "")};
  call.response_timeout_seconds = parse_number(setting("backint_response_timeout", "0")).value_or(0);
  call.kill_after_bytes = faults_.number("kill_hdbbackint_after_bytes", -1, request.database);
  call.signal_on_cancel = faults_.take("cancel_signal", request.database).value_or("TERM") == "TERM";
  const std::int64_t die_after = faults_.number("die_server_after_bytes", -1, request.database);
  std::vector<Backint_Part> parts;
  for (const Piece& piece : pieces) parts.push_back(piece.part);
  const std::string error = run_backint(
      call, parts, [this] { return canceled(); },
      [&](std::size_t bytes) {
        service.transferred += static_cast<std::int64_t>(bytes);
        if (die_after >= 0 && service.transferred >= die_after) ::kill(::getpid(), SIGKILL);
      },
      [this] { return rate(); });
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    pieces[i].part = std::move(parts[i]);
    note_checksum(layout_, request.database, service.service.name, running_.id, pieces[i].part);
  }
  log(error.empty() ? "INFO" : "ERROR", "state of service: " + service.service.name + ", " + layout_.host + ":" +
                                            std::to_string(service.service.port) +
                                            ", volume: " + std::to_string(service.service.volume) + ", " +
                                            (error.empty() ? "BackupFinished" : "BackupError"));
  return error;
}

std::string Backup_Run::write_to_file(Piece& piece, Running_Service& service) {
  const std::string path = layout_.real(piece.part.name);
  make_directories(std::filesystem::path(path).parent_path().string());
  const Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640));
  if (!file.valid()) return "[110001] cannot create file " + piece.part.name;
  Volume_Stream stream(piece.part.content);
  piece.part.result = write_stream(
      stream, file.get(),
      {[this] { return canceled(); },
       [&](std::size_t bytes) { service.transferred += static_cast<std::int64_t>(bytes); }, [this] { return rate(); }});
  note_checksum(layout_, running_.request.database, service.service.name, running_.id, piece.part);
  return piece.part.result.complete ? std::string() : "[110203] Not all data could be written: " + piece.part.name;
}

bool Backup_Run::note_files(System_State& state, const std::vector<std::vector<Piece>>& all, const Savepoint& savepoint,
                            Files when) {
  Catalog catalog(state);
  bool good = true;
  for (std::size_t i = 0; i < all.size(); ++i)
    for (const Piece& piece : all[i]) {
      Catalog_File file{piece.volume,
                        piece.volume == topology_volume ? "topology" : "volume",
                        running_.services[i]->service.name,
                        static_cast<std::int64_t>(piece.part.result.bytes),
                        piece.part.name,
                        running_.request.backint ? "backint" : "file",
                        piece.part.external_id,
                        savepoint.redo};
      const bool stored = when == Files::begin
                              ? catalog.add_file(running_.request.database, running_.entry, running_.id, file)
                              : catalog.complete_file(running_.entry, file);
      good = stored && good;
    }
  return good;
}

void Backup_Run::write_catalog_backup(System_State& state) {
  const std::string& database = running_.request.database;
  const bool same_id = faults_.take("catalog_same_id", database).value_or("no") == "yes";
  catalogs_.write(state, database, same_id ? std::optional(running_.id) : std::nullopt);
}

}  // namespace standin
