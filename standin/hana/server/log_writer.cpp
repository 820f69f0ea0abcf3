#include "server/log_writer.h"

#include <algorithm>

#include "base/clock.h"
#include "base/text.h"
#include "catalog/backup_log.h"
#include "server/configuration.h"
#include "server/log_stream.h"

namespace standin {

namespace {
constexpr std::int64_t tick_ms = 100;
constexpr std::int64_t bytes_per_mb = 1 << 20;
constexpr const char* delivered_timeout_s = "900";
constexpr const char* delivered_segment_mb = "1024";
constexpr std::int64_t default_retry_ms = 1000;

std::string key_of(const std::string& database, const std::string& service) { return database + "/" + service; }
}  // namespace

void Log_Writer::start(std::function<bool()> serving) {
  thread_ = std::thread([this, serving = std::move(serving)] { run(serving); });
}

void Log_Writer::stop() {
  stopping_ = true;
  if (thread_.joinable()) thread_.join();
  std::unique_lock guard(mutex_);
  idle_.wait(guard, [&] { return active_ == 0; });
}

bool Log_Writer::given_up(const std::string& database) {
  if (stopping_) return true;
  const std::lock_guard guard(mutex_);
  return ending_.contains(database);
}

void Log_Writer::end_of(const std::string& database) {
  const std::string prefix = key_of(database, "");
  std::unique_lock guard(mutex_);
  ending_.insert(database);
  idle_.wait(guard, [&] {
    return std::none_of(turns_.begin(), turns_.end(),
                        [&](const auto& turn) { return turn.second.busy && turn.first.starts_with(prefix); });
  });
  ending_.erase(database);
}

void Log_Writer::run(const std::function<bool()>& serving) {
  System_State state;
  bool opened = false;
  for (; !stopping_; sleep_ms(tick_ms)) {
    if (!serving()) continue;
    if (!opened) opened = state.open(layout_);
    if (!opened) continue;
    tick(state);
    ++looks_;
  }
}

Log_Writer::Settings Log_Writer::settings_of(const std::string& database, const Ini& global,
                                             const std::string& switched) const {
  const std::string folder = layout_.database_folder(database);
  const Ini own =
      folder.empty() || database == system_database ? Ini() : Ini::load(layout_.configuration(folder + "/global.ini"));
  const auto value = [&](const char* section, const char* key, const char* otherwise) {
    return own.get(section, key, global.get(section, key, otherwise));
  };
  Settings found;
  found.backint = is_true(value("backup", "log_backup_using_backint", "false"));
  found.wanted = switched == "on" || (switched != "off" && found.backint);
  found.normal = lower(value("persistence", "log_mode", "normal")) == "normal";
  found.automatic = is_true(value("persistence", "enable_auto_log_backup", "yes"));
  const auto number = [&](const char* key, const char* otherwise) {
    return parse_number(value("persistence", key, otherwise)).value_or(0);
  };
  found.timeout_ms = number("log_backup_timeout_s", delivered_timeout_s) * 1000;
  found.segment_bytes = number("log_segment_size_mb", delivered_segment_mb) * bytes_per_mb;
  return found;
}

void Log_Writer::tick(System_State& state) {
  const Ini global = Ini::load(layout_.configuration("global.ini"));
  const std::string switched(trim(read_file(layout_.shared("log_writer")).value_or("auto")));
  for (const Database& database : state.databases()) {
    if (database.status != "YES") continue;
    const Settings settings = settings_of(database.name, global, switched);
    if (!settings.wanted) continue;
    if (settings.normal)
      keep(state, database, settings);
    else
      Redo_Log(state, database.name).discard();
  }
}

bool Log_Writer::begin_log(Redo_Log& log, const std::string& database, const std::string& service) {
  auto start = log.start_behind_full(service);
  if (!start && faults_.take("log_without_full", database).value_or("no") == "yes")
    start = Service_Log{service, log.position(), log.position(), 0, now_ms()};
  return start && log.begin(*start);
}

bool Log_Writer::close_segment(System_State& state, Redo_Log& log, const std::string& service) {
  // Nobody commits meanwhile: what was committed until now is in the segment.
  if (!state.sqlite().execute("BEGIN IMMEDIATE")) return false;
  const bool good = log.close_segment(service, log.position(), now_ms());
  return state.sqlite().execute(good ? "COMMIT" : "ROLLBACK") && good;
}

bool Log_Writer::close_segments(System_State& state, const Database& database, const Settings& settings) {
  Redo_Log log(state, database.name);
  const std::int64_t now = now_ms();
  std::int64_t position = log.position();
  const bool area_full = full(state, database.name);
  const std::int64_t segment_bytes = faults_.number("log_segment_bytes", settings.segment_bytes, database.name);
  for (const Service& service : database.services) {
    const auto known = log.of_service(service.name);
    if (!known) return false;
    const bool by_time = settings.timeout_ms > 0 && now - known->opened_ms >= settings.timeout_ms;
    if (by_time && position == known->closed) {
      if (!log.write_own_entry()) return false;
      position = log.position();
    }
    if (position == known->closed) continue;
    const bool by_size =
        segment_bytes > 0 && has_tables(layout_, service.name) && log.bytes_behind(known->closed) >= segment_bytes;
    if ((by_time || by_size || area_full) && !close_segment(state, log, service.name)) return false;
  }
  return true;
}

void Log_Writer::keep(System_State& state, const Database& database, const Settings& settings) {
  Redo_Log log(state, database.name);
  for (const Service& service : database.services)
    if (!log.of_service(service.name) && !begin_log(log, database.name, service.name)) return;
  if (!close_segments(state, database, settings) || !settings.automatic) return;
  for (const Service& service : database.services) {
    const auto known = log.of_service(service.name);
    if (known && known->closed > known->saved) launch({database.name, service, *known, settings.backint});
  }
}

void Log_Writer::launch(const Due& due) {
  {
    const std::lock_guard guard(mutex_);
    Turn& turn = turns_[key_of(due.database, due.service.name)];
    if (turn.busy || now_ms() < turn.not_before_ms) return;
    turn.busy = true;
    ++active_;
  }
  std::thread([this, due] { save(due); }).detach();
}

void Log_Writer::save(const Due& given) {
  System_State state;
  Due due = given;
  std::string error = "[2] state is not accessible";
  if (state.open(layout_)) {
    // What the caller saw may be saved meanwhile.
    const auto known = Redo_Log(state, due.database).of_service(due.service.name);
    if (known && known->closed > known->saved) {
      due.log = *known;
      std::int64_t id = backups_.next_id();
      error = write(state, due, id, due.backint);
      const bool falls_back = faults_.take("log_fallback", due.database).value_or("file") == "file";
      if (!error.empty() && due.backint && falls_back && !given_up(due.database)) {
        id = backups_.next_id();
        error = write(state, due, id, false);
      }
      const bool same_id = faults_.take("log_catalog_same_id", due.database).value_or("no") == "yes";
      if (error.empty()) backups_.catalogs().write(state, due.database, same_id ? std::optional(id) : std::nullopt);
    } else {
      error.clear();
    }
  }
  const std::int64_t pause = error.empty() ? 0 : faults_.number("log_retry_ms", default_retry_ms, due.database);
  const std::lock_guard guard(mutex_);
  turns_[key_of(due.database, due.service.name)] = {false, pause == 0 ? 0 : now_ms() + pause};
  --active_;
  idle_.notify_all();
}

std::string Log_Writer::write(System_State& state, const Due& due, std::int64_t id, bool backint) {
  const auto note = [&](const char* level, const std::string& text) {
    append_backup_log(layout_, due.database, now_ms(), id, level, "LOGBCKUP", text);
  };
  const std::string name = "log_backup_" + std::to_string(due.service.volume) + "_0_" + std::to_string(due.log.saved) +
                           "_" + std::to_string(due.log.closed);
  Redo_Log log(state, due.database);
  Log_Stream stream;
  stream.database = due.database;
  stream.service = due.service.name;
  stream.backup_id = id;
  stream.header = "volume=" + std::to_string(due.service.volume) +
                  "\nkind=LOG\nfirst=" + std::to_string(due.log.saved) + "\nlast=" + std::to_string(due.log.closed) +
                  "\n";
  if (has_tables(layout_, due.service.name)) stream.text = log.text(due.log.saved, due.log.closed);
  stream.backint = backint;
  stream.parameter_file = setting_of(layout_, due.database, "backup", "log_backup_parameter_file", "");
  stream.name =
      backint ? layout_.backint_directory(due.database) + "/" + name
              : log_backup_folder(layout_, due.database, "basepath_logbackup") + "/" + name + "." + std::to_string(id);
  Catalog catalog(state);
  const std::int64_t entry = catalog.begin(due.database, log_backup, id, "", 0, id);
  Catalog_File file{due.service.volume, "volume", due.service.name, 0, stream.name, backint ? "backint" : "file"};
  const bool noted = catalog.add_file(due.database, entry, id, file) &&
                     catalog.note_log(entry, due.log.saved, due.log.closed, due.log.segments, due.log.opened_ms);
  note("INFO", std::string("to ") + (backint ? " backint: " : " file: ") + stream.name);
  Backint_Part part;
  std::string error = write_log_stream(
      state, stream, [&] { return given_up(due.database); }, part);
  if (given_up(due.database) && !error.empty()) error = "The database was stopped while the backup was running";
  file.size = static_cast<std::int64_t>(part.result.bytes);
  file.external_id = part.external_id;
  // The end and what it means for the log stand together: a server that dies writes the same log again or none of it.
  bool ended = state.sqlite().execute("BEGIN IMMEDIATE") && noted && catalog.complete_file(entry, file);
  ended = ended && (!error.empty() || log.mark_saved(due.log));
  ended = ended && catalog.finish(entry, error.empty() ? "successful" : "failed", error.empty() ? "<ok>" : error);
  ended = state.sqlite().execute(ended ? "COMMIT" : "ROLLBACK") && ended;
  if (error.empty() && !ended) error = "[2] catalog could not be written";
  if (error.empty())
    note("INFO", "LOG BACKUP finished successfully");
  else
    note("ERROR", "LOG BACKUP finished with error: [447] backup could not be completed, " + error);
  return error;
}

bool Log_Writer::full(System_State& state, const std::string& database) {
  const std::int64_t area = faults_.number("log_area_bytes", 0, database);
  if (area <= 0) return false;
  Redo_Log log(state, database);
  const auto saved = log.saved_by_all();
  return saved && log.bytes_behind(*saved) >= area;
}

}  // namespace standin
